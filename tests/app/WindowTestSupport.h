#pragma once
// What the window tests share: a control found by its object name, and a
// file written into the test's own folder.
#include <QByteArray>
#include <QFile>
#include <QObject>
#include <QString>
#include <QTemporaryDir>
#include <QtGlobal>

namespace kestro::testing {

template <typename W>
W* control(const QObject& window, const char* name) {
    W* w = window.findChild<W*>(name);
    if (!w) qFatal("no control %s", name);
    return w;
}

inline QString writeTestFile(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes) {
    const QString path = dir.filePath(name);
    QFile f(path);
    f.open(QIODevice::WriteOnly);
    f.write(bytes);
    return path;
}

}  // namespace kestro::testing
