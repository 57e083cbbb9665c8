#include "app/Remembered.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QWidget>

namespace remembered {

namespace {

const char* const FolderKey = "addFilesFolder";
const char* const GeometryKey = "windowGeometry";

// ~/.config/Kestro/Kestro.conf on Linux.
QVariant setting(const char* key) { return QSettings("Kestro", "Kestro").value(key); }
void setSetting(const char* key, const QVariant& value) { QSettings("Kestro", "Kestro").setValue(key, value); }

}  // namespace

QString startFolder() {
    const QString last = setting(FolderKey).toString();
    if (!last.isEmpty() && QFileInfo(last).isDir()) return last;
    // A program started from a desktop menu often runs in the root folder.
    const QString current = QDir::currentPath();
    return QDir(current).isRoot() ? QDir::homePath() : current;
}

void rememberFolder(const QString& folder) { setSetting(FolderKey, folder); }

void restoreGeometry(QWidget& window) {
    const QByteArray geometry = setting(GeometryKey).toByteArray();
    if (!geometry.isEmpty()) window.restoreGeometry(geometry);
}

void saveGeometry(const QWidget& window) { setSetting(GeometryKey, window.saveGeometry()); }

}  // namespace remembered
