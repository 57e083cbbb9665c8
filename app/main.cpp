// kestro: the main window.
#include <QApplication>
#include <QStringList>

#include "app/KestroWindow.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName("Kestro");
    QApplication::setApplicationVersion(KESTRO_VERSION);
    // Desktops match the window to its menu entry and metadata by this id.
    QGuiApplication::setDesktopFileName("io.github.kestro.Kestro");
    // The readers see the command line as one text, as it was typed.
    const QString commandLine = QApplication::arguments().mid(1).join(' ');
    Kestro window(commandLine);
    window.show();
    return QApplication::exec();
}
