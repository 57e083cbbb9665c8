#pragma once
// What the main window remembers between sessions: the folder files were
// last added from, and its own size and place. Nothing else: the format
// choice and the boxes start as they always do.
#include <QString>

class QWidget;

namespace remembered {

// The folder files were last added from, while it exists; else the current
// folder, or the home folder when the current one is the root.
QString startFolder();
void rememberFolder(const QString& folder);

void restoreGeometry(QWidget& window);
void saveGeometry(const QWidget& window);

}  // namespace remembered
