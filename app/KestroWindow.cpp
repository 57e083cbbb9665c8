#include "app/KestroWindow.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QFileSystemModel>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QStorageInfo>
#include <QSysInfo>
#include <QToolButton>
#include <QToolTip>
#include <QTreeView>
#include <QTreeWidget>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>
#include <climits>

#include "app/Remembered.h"
#include "batch/Driver.h"
#include "core/FormatTable.h"
#include "core/runtime/RuntimeError.h"
#include "plot/SpecPlot.h"

using namespace kestro;

namespace {

QString qs(const std::string& s) { return QString::fromLocal8Bit(s.data(), static_cast<qsizetype>(s.size())); }
std::string ss(const QString& s) { return s.toLocal8Bit().toStdString(); }

QLabel* label(const QString& name, const QString& caption, QWidget* parent) {
    auto* l = new QLabel(caption, parent);
    l->setObjectName(name);
    l->setFont(QFont("Arial"));
    return l;
}

template <typename W>
W* named(W* widget, const QString& name, const QString& toolTip = QString()) {
    widget->setObjectName(name);
    if (!toolTip.isEmpty()) widget->setToolTip(toolTip);
    return widget;
}

// The patterns of the "type extension" box, separated by ";", matched
// without regard to case, as instrument files come in both.
QStringList patternList(const std::string& pattern) {
    QStringList list;
    for (const QString& p : qs(pattern).split(';', Qt::SkipEmptyParts)) list << p.trimmed();
    return list;
}

QString shownPath(const QString& folder) { return QDir::toNativeSeparators(folder); }

QString oneLine(const std::string& text) { return qs(text).simplified(); }

QStringList fileNames(const std::vector<std::string>& paths) {
    QStringList names;
    for (const std::string& path : paths) names << QFileInfo(qs(path)).fileName();
    return names;
}

// One row of the run log: what was written, or why nothing (more) was.
QString resultText(const RunLogFile& file) {
    QString text;
    switch (file.state) {
    case RunLogFile::State::NotReached: return "not reached";
    case RunLogFile::State::Failed:
        text = "stopped: " + (file.message.empty() ? QString("the run ended here") : oneLine(file.message));
        if (!file.outputs.empty()) text += "; written before it stopped: " + fileNames(file.outputs).join(", ");
        break;
    case RunLogFile::State::Converted:
        text = file.outputs.empty() ? QString("nothing written") : "wrote " + fileNames(file.outputs).join(", ");
        if (!file.message.empty()) text += "; said: " + oneLine(file.message);
        break;
    }
    if (!file.replaced.empty()) text += "; earlier files moved aside: " + fileNames(file.replaced).join(", ");
    if (!file.removed.empty()) text += "; removed after the failure: " + fileNames(file.removed).join(", ");
    return text;
}

// The tool tip keeps the message's lines and the full paths.
QString resultDetail(const RunLogFile& file) {
    QStringList lines;
    if (!file.message.empty()) lines << qs(file.message).trimmed();
    for (const std::string& path : file.outputs) lines << qs(path);
    return lines.join('\n');
}

// The window manager's frame around a top-level widget.
QMargins frameMargins(const QWidget& w) {
    const QRect outer = w.frameGeometry(), inner = w.geometry();
    return {inner.left() - outer.left(), inner.top() - outer.top(), outer.right() - inner.right(),
            outer.bottom() - inner.bottom()};
}

// `rect` moved (and if need be shrunk) to lie inside `area`.
QRect inside(QRect rect, const QRect& area) {
    rect.setSize(rect.size().boundedTo(area.size()));
    rect.moveLeft(std::clamp(rect.left(), area.left(), area.right() + 1 - rect.width()));
    rect.moveTop(std::clamp(rect.top(), area.top(), area.bottom() + 1 - rect.height()));
    return rect;
}

}  // namespace

Kestro::Kestro(const QString& commandLine, QWidget* parent) : QWidget(parent), session_(*this) {
    setObjectName("Kestro");
    setWindowTitle("Data format conversion");
    setAcceptDrops(true);
    createControls();
    arrangeControls();
    connectHandlers();
    plot_ = new SpecPlot(this);
    connect(plot_, &SpecPlot::logarithmicChosen, this, [this](bool on) {
        LogScale->setChecked(on);
        LogScale_Click(on);
    });
    connect(plot_, &SpecPlot::resultChosen, this, &Kestro::showResult);
    session_.commandLine = ss(commandLine);
    formLoad(session_);
    fillDrives();
    showFolder(remembered::startFolder());
    remembered::restoreGeometry(*this);
}

Kestro::~Kestro() = default;

void Kestro::createControls() {
    Drive1 = named(new QComboBox(this), "Drive1", "select drive");
    folders_ = new QFileSystemModel(this);
    folders_->setFilter(QDir::AllDirs | QDir::NoDotAndDotDot);
    folders_->setRootPath("/");
    Dir1 = named(new QTreeView(this), "Dir1", "select folder");
    Dir1->setModel(folders_);
    for (int c = 1; c < folders_->columnCount(); ++c) Dir1->hideColumn(c);
    Dir1->header()->hide();
    Path = named(new QLineEdit(this), "Path", "the folder shown; type or paste a folder and press Enter");
    File1 = named(new QListWidget(this), "File1", "select file");
    File1->setTextElideMode(Qt::ElideMiddle);  // the extension stays in sight
    File1->setSelectionMode(QAbstractItemView::ExtendedSelection);
    File1->setMouseTracking(true);
    File1->viewport()->installEventFilter(this);
    Text1 = named(new QLineEdit(this), "Text1", "type extension");
    Combo1 = named(new QComboBox(this), "Combo1");
    Combo1->setEditable(true);
    Combo1->setInsertPolicy(QComboBox::NoInsert);
    for (const FormatEntry& entry : formatTable) Combo1->addItem(entry.text);
    List1 = named(new QListWidget(this), "List1", "select to remove");
    List1->setSelectionMode(QAbstractItemView::ExtendedSelection);
    List1->setMouseTracking(true);
    List1->viewport()->installEventFilter(this);
    List2 = named(new QListWidget(this), "List2");
    List2->hide();  // the full paths, kept beside the names
    addfile = named(new QPushButton("Add files", this), "addfile");
    remove = named(new QPushButton("Remove", this), "remove");
    RunCode = named(new QPushButton("Convert", this), "RunCode", "convert the queued files");
    End = named(new QPushButton("End", this), "End");
    About = named(new QPushButton("About", this), "About");
    Help = named(new QPushButton("Help", this), "Help");
    SPE = named(new QCheckBox(this), "SPE");
    SPO = named(new QCheckBox(this), "SPO");
    cOMDAQ = named(new QCheckBox(this), "cOMDAQ");
    cDXP = named(new QCheckBox(this), "cDXP");
    DsGr = named(new QCheckBox(this), "DsGr");
    LogScale = named(new QCheckBox(this), "LogScale");
    // Kestro's own addition, off at start: nothing changes until it is ticked.
    ModernRead = named(new QCheckBox("Modern readers", this), "ModernRead",
                       "read GAML, SPA, SPC, RAW, MPA, CNF and SPX files by their documented layouts, "
                       "where the classic rules give no data or wrong data");
    // The captions "SPE [AIEA]" and "SPO [Gpx]" are kept as users know them.
    MakeSPE = label("MakeSPE", "SPE [AIEA]", this);
    MakeSPO = label("MakeSPO", "SPO [Gpx]", this);
    rOMDAQ = label("rOMDAQ", "OMDAQ", this);
    rDXP = label("rDXP", "DXPout", this);
    displayGraph = label("displayGraph", "GRAPH", this);
    linlogLabel = label("linlogLabel", "LOG", this);
    Text2 = named(new QLineEdit(this), "Text2");
    Text2->setReadOnly(true);
    ProgressBar1 = named(new QProgressBar(this), "ProgressBar1");
    ProgressBar1->setRange(0, 100);
    ProgressBar1->setValue(0);
    Details = named(new QToolButton(this), "Details", "what the last run did, file by file");
    Details->setText("Details");
    Details->setCheckable(true);
    Details->setArrowType(Qt::RightArrow);
    Details->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    Details->setAutoRaise(true);
    RunLogList = named(new QTreeWidget(this), "RunLog");
    RunLogList->setColumnCount(2);
    RunLogList->setHeaderLabels({"File", "Result"});
    RunLogList->setRootIsDecorated(false);
    RunLogList->setMinimumHeight(90);
    RunLogList->hide();
    Label1 = label("Label1", "Folders:", this);
    Label2 = label("Label2", "File Names:", this);
    Label3 = label("Label3", "File Types:", this);
}

void Kestro::arrangeControls() {
    auto boxWithLabel = [this](QCheckBox* box, QLabel* caption) {
        auto* row = new QHBoxLayout;
        row->addWidget(box);
        row->addWidget(caption);
        row->addStretch();
        caption->setBuddy(box);
        return row;
    };
    auto* browse = new QGridLayout;
    browse->addWidget(Label1, 0, 0);
    browse->addWidget(Label2, 0, 1);
    browse->addWidget(Drive1, 1, 0);
    browse->addWidget(Text1, 1, 1);
    browse->addWidget(Path, 2, 0, 1, 2);
    browse->addWidget(Dir1, 3, 0);
    browse->addWidget(File1, 3, 1);
    browse->addWidget(Label3, 4, 0);
    browse->addWidget(Combo1, 4, 1);
    browse->setRowStretch(3, 1);

    auto* queueButtons = new QHBoxLayout;
    queueButtons->addWidget(addfile);
    queueButtons->addWidget(remove);
    auto* queue = new QVBoxLayout;
    queue->addLayout(queueButtons);
    queue->addWidget(List1, 1);
    queue->addWidget(List2);

    auto* outputs = new QVBoxLayout;
    outputs->addLayout(boxWithLabel(SPE, MakeSPE));
    outputs->addLayout(boxWithLabel(SPO, MakeSPO));
    outputs->addLayout(boxWithLabel(cOMDAQ, rOMDAQ));
    outputs->addLayout(boxWithLabel(cDXP, rDXP));
    outputs->addLayout(boxWithLabel(DsGr, displayGraph));
    outputs->addLayout(boxWithLabel(LogScale, linlogLabel));
    outputs->addWidget(ModernRead);
    outputs->addStretch();
    outputs->addWidget(RunCode);
    outputs->addWidget(Help);
    outputs->addWidget(About);
    outputs->addWidget(End);

    auto* top = new QHBoxLayout;
    top->addLayout(browse, 3);
    top->addLayout(queue, 2);
    top->addLayout(outputs, 0);

    auto* status = new QHBoxLayout;
    status->addWidget(Text2, 2);
    status->addWidget(ProgressBar1, 1);

    auto* details = new QHBoxLayout;
    details->addWidget(Details);
    details->addStretch();

    auto* whole = new QVBoxLayout(this);
    whole->addLayout(top, 1);
    whole->addLayout(status);
    whole->addLayout(details);
    whole->addWidget(RunLogList);
    resize(900, 560);
}

void Kestro::connectHandlers() {
    connect(Drive1, &QComboBox::activated, this, &Kestro::Drive1_Change);
    connect(Dir1, &QTreeView::clicked, this, &Kestro::Dir1_Click);
    // The keys move through the tree as clicks do.
    connect(Dir1->selectionModel(), &QItemSelectionModel::currentChanged, this, &Kestro::Dir1_CurrentChanged);
    Dir1->viewport()->installEventFilter(this);
    Dir1->installEventFilter(this);
    connect(folders_, &QFileSystemModel::directoryLoaded, this, &Kestro::revealFolder);
    connect(Path, &QLineEdit::returnPressed, this, &Kestro::Path_Enter);
    connect(Details, &QToolButton::toggled, this, [this](bool open) {
        Details->setArrowType(open ? Qt::DownArrow : Qt::RightArrow);
        RunLogList->setVisible(open);
    });
    connect(File1, &QListWidget::itemDoubleClicked, this, &Kestro::File1_DblClick);
    connect(addfile, &QPushButton::clicked, this, &Kestro::addfile_Click);
    connect(remove, &QPushButton::clicked, this, &Kestro::remove_Click);
    connect(SPE, &QCheckBox::clicked, this, &Kestro::SPE_Click);
    connect(SPO, &QCheckBox::clicked, this, &Kestro::SPO_Click);
    connect(LogScale, &QCheckBox::clicked, this, &Kestro::LogScale_Click);
    connect(cOMDAQ, &QCheckBox::clicked, this, [this](bool on) { session_.boxes.cOMDAQ = on; });
    connect(cDXP, &QCheckBox::clicked, this, [this](bool on) { session_.boxes.cDXP = on; });
    connect(DsGr, &QCheckBox::clicked, this, [this](bool on) { session_.boxes.DsGr = on; });
    connect(ModernRead, &QCheckBox::clicked, this, [this](bool on) { session_.boxes.ModernRead = on; });
    connect(RunCode, &QPushButton::clicked, this, &Kestro::RunCode_Click);
    connect(Help, &QPushButton::clicked, this, &Kestro::Help_Click);
    connect(About, &QPushButton::clicked, this, &Kestro::About_Click);
    connect(End, &QPushButton::clicked, this, &Kestro::End_Click);
    connect(Text1, &QLineEdit::textEdited, this, &Kestro::Text1_Change);
    connect(Combo1, &QComboBox::activated, this, &Kestro::Combo1_Click);
    connect(Combo1->lineEdit(), &QLineEdit::textEdited, this, &Kestro::Combo1_Change);
}

// ---- drives, folders, files ----

void Kestro::fillDrives() {
    Drive1->clear();
    for (const QStorageInfo& volume : QStorageInfo::mountedVolumes())
        if (volume.isValid() && volume.isReady()) Drive1->addItem(volume.rootPath());
    if (Drive1->findText("/") < 0) Drive1->insertItem(0, "/");
}

void Kestro::Drive1_Change(int index) {
    const QString drive = Drive1->itemText(index);
    QDir root(drive);
    if (!root.exists() || !root.isReadable()) {
        const QString fallback = QDir::rootPath();
        messageBox(ss("Error! Drive not ready or not readable: [disk " + drive + "]\nReverting to " + fallback),
                   BoxIcon::Exclamation, BoxButtons::Ok);
        Drive1->setCurrentIndex(std::max(0, Drive1->findText(fallback)));
        showFolder(fallback);
        return;
    }
    showFolder(drive);
}

void Kestro::showFolder(const QString& path) {
    folder_ = QDir(path).absolutePath();
    Path->setText(shownPath(folder_));
    // The tree fills in the background: each parent that loads moves the
    // folder's row, so it is scrolled to again until the user takes over.
    revealing_ = true;
    revealFolder(QString());
    fillFileList();
}

void Kestro::revealFolder(const QString& loaded) {
    if (!revealing_) return;
    const QString parent = loaded.endsWith('/') ? loaded : loaded + '/';
    if (!loaded.isEmpty() && !(folder_ + '/').startsWith(parent)) return;
    const QModelIndex index = folders_->index(folder_);
    if (!index.isValid()) return;
    if (Dir1->currentIndex() != index) Dir1->setCurrentIndex(index);
    Dir1->scrollTo(index, QAbstractItemView::PositionAtCenter);
    Dir1->expand(index);
}

void Kestro::Dir1_Click(const QModelIndex& index) {
    const QString text = folders_->fileName(index);
    const bool fits = Dir1->fontMetrics().horizontalAdvance(text) < Dir1->viewport()->width();
    Dir1->setToolTip(fits ? "select folder" : folders_->filePath(index));
    Dir1_CurrentChanged(index);
    Dir1->expand(index);
}

void Kestro::Dir1_CurrentChanged(const QModelIndex& index) {
    if (!index.isValid()) return;
    const QString path = folders_->filePath(index);
    if (path == folder_) return;
    revealing_ = false;
    folder_ = path;
    Path->setText(shownPath(folder_));
    fillFileList();
}

void Kestro::Path_Enter() {
    const QString typed = Path->text().trimmed();
    QString path = QDir::fromNativeSeparators(typed);
    if (path == "~" || path.startsWith("~/")) path = QDir::homePath() + path.mid(1);
    const QFileInfo target(QDir(folder_).absoluteFilePath(path));
    if (typed.isEmpty() || !target.isDir()) {
        const QString why = target.exists() ? " is a file, not a folder." : " does not exist.";
        messageBox(ss("The folder \"" + typed + "\"" + why + "\nThe folder shown stays " + shownPath(folder_) + "."),
                   BoxIcon::Exclamation, BoxButtons::Ok);
        Path->setText(shownPath(folder_));
        return;
    }
    showFolder(QDir::cleanPath(target.absoluteFilePath()));
}

void Kestro::fillFileList() {
    File1->clear();
    QDir dir(folder_);
    dir.setFilter(QDir::Files);
    dir.setNameFilters(patternList(session_.filePattern));
    dir.setSorting(QDir::Name | QDir::IgnoreCase);
    // A name too long for the list shows whole as its tool tip.
    for (const QString& name : dir.entryList()) (new QListWidgetItem(name, File1))->setToolTip(name);
}

void Kestro::File1_DblClick() { addfile->click(); }

void Kestro::addfile_Click() {
    QStringList paths;
    for (int row = 0; row < File1->count(); ++row)
        if (File1->item(row)->isSelected()) paths << QDir(folder_).filePath(File1->item(row)->text());
    if (!paths.isEmpty()) remembered::rememberFolder(folder_);
    queueFiles(paths);
}

void Kestro::queueFiles(const QStringList& fullPaths) {
    for (const QString& path : fullPaths) session_.addToQueue(ss(QFileInfo(path).fileName()), ss(path));
    afterQueueing();
}

void Kestro::afterQueueing() {
    Text2->clear();
    ProgressBar1->setValue(0);
}

void Kestro::remove_Click() {
    for (int row = List1->count() - 1; row >= 0; --row) {
        if (!List1->item(row)->isSelected()) continue;
        session_.List1.erase(session_.List1.begin() + row);
        session_.List2.erase(session_.List2.begin() + row);
    }
    queueChanged();
}

void Kestro::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void Kestro::dropEvent(QDropEvent* event) {
    QStringList paths;
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile() && QFileInfo(url.toLocalFile()).isFile()) paths << url.toLocalFile();
    if (!paths.isEmpty()) remembered::rememberFolder(QFileInfo(paths.first()).absolutePath());
    queueFiles(paths);
    event->acceptProposedAction();
}

// The entry under the mouse becomes the list's tool tip, "(empty)" below the last.
bool Kestro::eventFilter(QObject* watched, QEvent* event) {
    // Once the user works the folder tree it stays where they put it.
    const QEvent::Type type = event->type();
    if ((watched == Dir1 || watched == Dir1->viewport()) &&
        (type == QEvent::MouseButtonPress || type == QEvent::Wheel || type == QEvent::KeyPress))
        revealing_ = false;
    if (event->type() == QEvent::MouseMove) {
        for (QListWidget* list : {File1, List1}) {
            if (watched != list->viewport()) continue;
            QListWidgetItem* item = list->itemAt(static_cast<QMouseEvent*>(event)->position().toPoint());
            list->setToolTip(item ? item->text() : "(empty)");
        }
    }
    return QWidget::eventFilter(watched, event);
}

// ---- format and boxes ----

void Kestro::Text1_Change(const QString& text) {
    kestro::Text1_Change(session_, ss(text));
    boxesChanged();
}

void Kestro::Combo1_Click(int index) {
    kestro::Combo1_Click(session_, index);
    boxesChanged();
}

void Kestro::Combo1_Change(const QString& text) {
    kestro::Combo1_Change(session_, ss(text));
    boxesChanged();
}

void Kestro::SPE_Click(bool checked) {
    session_.changeBoxes([checked](Boxes& b) {
        b.SPE = checked;
        if (checked) b.SPO = false;
    });
}

void Kestro::SPO_Click(bool checked) {
    session_.changeBoxes([checked](Boxes& b) {
        b.SPO = checked;
        if (checked) b.SPE = false;
    });
}

void Kestro::LogScale_Click(bool checked) {
    session_.boxes.LogScale = checked;
    linlogLabel->setText(checked ? "log" : "lin");
    // The plot showing is drawn again on the chosen scale.
    if (plot_ && plot_->isVisible() && plot_->logarithmic() != checked) plot_->applyScale(checked);
}

// ---- the batch ----

void Kestro::RunCode_Click() {
    // Input waits until the run ends: the batch runs here, and only painting
    // is let through while it does.
    RunCode->setEnabled(false);
    RunLogList->clear();
    kestro::RunCode_Click(session_);
    RunCode->setEnabled(true);
}

void Kestro::paintNow() { QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents); }

void Kestro::showStatus(const std::string& text, StatusColour colour) {
    QPalette pal = Text2->palette();
    pal.setColor(QPalette::Text, colour == StatusColour::Red ? QColor(255, 0, 0) : QColor(0, 0, 255));
    Text2->setPalette(pal);
    Text2->setText(qs(text));
    paintNow();
}

void Kestro::showProgress(int value) {
    ProgressBar1->setValue(value);
    paintNow();
}

void Kestro::beep() { QApplication::beep(); }

Answer Kestro::messageBox(const std::string& text, BoxIcon icon, BoxButtons buttons) {
    if (answerMessage) return answerMessage(text, icon, buttons);
    static const QMessageBox::Icon icons[] = {QMessageBox::NoIcon, QMessageBox::Critical, QMessageBox::Warning,
                                              QMessageBox::Information, QMessageBox::Question};
    QMessageBox box(icons[static_cast<int>(icon)], QApplication::applicationName(), qs(text),
                    buttons == BoxButtons::YesNo ? QMessageBox::Yes | QMessageBox::No : QMessageBox::Ok, this);
    const int pressed = box.exec();
    if (buttons == BoxButtons::Ok) return Answer::Ok;
    return pressed == QMessageBox::Yes ? Answer::Yes : Answer::No;
}

void Kestro::plot(const PlotPoints& points, int64_t, const std::string& name) {
    const bool shown = plot_->isVisible();
    plot_->plot(points, qs(name), size());
    // Every ".odf" the file gave can be stepped through, this one first.
    QStringList results;
    if (const RunLogFile* file = session_.runLog.current())
        for (const std::string& output : file->outputs)
            if (QFileInfo(qs(output)).suffix().compare("odf", Qt::CaseInsensitive) == 0 &&
                QFileInfo::exists(qs(output)))
                results << qs(output);
    if (!results.contains(qs(name))) results.prepend(qs(name));
    plot_->setResults(results, static_cast<int>(results.indexOf(qs(name))));
    if (!shown) {
        placePlot();
    } else {
        // Where the user left it, but still fully on screen at its new size.
        const QRect at = inside(plot_->frameGeometry(), plot_->screen()->availableGeometry());
        plot_->resize(at.size().shrunkBy(frameMargins(*plot_)));
        plot_->move(at.topLeft());
    }
    plot_->show();
    plot_->raise();
    paintNow();
}

void Kestro::showResult(const QString& odfName) {
    try {
        plot_->replacePoints(readPlotPoints(ss(odfName)), odfName);
    } catch (const RuntimeError& e) {
        messageBox(ss(odfName) + " could not be read: Error " + std::to_string(e.number()) + " " + e.description(),
                   BoxIcon::Exclamation, BoxButtons::Ok);
        return;
    }
    plot_->applyScale(session_.boxes.LogScale);
}

QRect Kestro::plotPlacement(const QRect& screen, const QRect& main, QSize plot, int statusTop, int statusBottom) {
    QRect at(QPoint(), plot.boundedTo(screen.size()));
    if (main.right() + at.width() <= screen.right()) {
        at.moveTopLeft({main.right() + 1, main.top()});
    } else if (main.left() - at.width() >= screen.left()) {
        at.moveTopLeft({main.left() - at.width(), main.top()});
    } else {
        // Over the main window, on the side of its status line with more room.
        const int above = statusTop - screen.top(), below = screen.bottom() - statusBottom;
        at.moveLeft(main.left() + 40);
        if (above >= below) {
            at.setHeight(std::min(at.height(), above));
            at.moveTop(std::max(screen.top(), statusTop - at.height()));
        } else {
            at.setHeight(std::min(at.height(), below));
            at.moveTop(statusBottom + 1);
        }
    }
    return inside(at, screen);
}

void Kestro::placePlot() {
    // The plot is framed as the main window is.
    const QRect main = frameGeometry();
    const QMargins frame = frameMargins(*this);
    int statusTop = INT_MAX, statusBottom = INT_MIN;
    for (QWidget* w : {static_cast<QWidget*>(Text2), static_cast<QWidget*>(ProgressBar1)}) {
        const QRect r(w->mapToGlobal(QPoint()), w->size());
        statusTop = std::min(statusTop, r.top());
        statusBottom = std::max(statusBottom, r.bottom());
    }
    const QRect at = plotPlacement(screen()->availableGeometry(), main, plot_->size().grownBy(frame), statusTop,
                                   statusBottom);
    plot_->resize(at.size().shrunkBy(frame));
    plot_->move(at.topLeft());
}

void Kestro::applyScale(bool logarithmic) {
    plot_->applyScale(logarithmic);
    paintNow();
}

void Kestro::wait(double seconds) {
    QElapsedTimer timer;
    timer.start();
    const qint64 until = static_cast<qint64>(seconds * waitScale * 1000);
    do {
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents, 50);
    } while (timer.elapsed() < until);
}

void Kestro::boxesChanged() {
    if (syncing_) return;
    syncing_ = true;
    const Boxes& b = session_.boxes;
    SPE->setChecked(b.SPE);
    SPO->setChecked(b.SPO);
    cOMDAQ->setChecked(b.cOMDAQ);
    cDXP->setChecked(b.cDXP);
    DsGr->setChecked(b.DsGr);
    LogScale->setChecked(b.LogScale);
    ModernRead->setChecked(b.ModernRead);
    for (QWidget* w : {static_cast<QWidget*>(cOMDAQ), static_cast<QWidget*>(rOMDAQ)}) w->setVisible(b.omdaqVisible);
    for (QWidget* w : {static_cast<QWidget*>(cDXP), static_cast<QWidget*>(rDXP)}) w->setVisible(b.dxpVisible);
    if (Text1->text() != qs(session_.typedText)) Text1->setText(qs(session_.typedText));
    if (Combo1->currentText() != qs(session_.comboText)) Combo1->setEditText(qs(session_.comboText));
    if (shownPattern_ != qs(session_.filePattern)) {
        shownPattern_ = qs(session_.filePattern);
        fillFileList();
    }
    syncing_ = false;
    paintNow();
}

void Kestro::queueChanged() {
    List1->clear();
    List2->clear();
    for (const std::string& name : session_.List1) List1->addItem(qs(name));
    for (const std::string& path : session_.List2) List2->addItem(qs(path));
    paintNow();
}

void Kestro::runLogged(const RunLog& log) {
    RunLogList->clear();
    bool failed = false;
    for (const RunLogFile& file : log.files) {
        auto* row = new QTreeWidgetItem(RunLogList, {qs(file.name), resultText(file)});
        const QString detail = resultDetail(file);
        for (int c = 0; c < 2; ++c) row->setToolTip(c, detail.isEmpty() ? row->text(c) : detail);
        if (file.state == RunLogFile::State::Failed) {
            failed = true;
            row->setForeground(1, QColor(255, 0, 0));
        } else if (file.state == RunLogFile::State::NotReached) {
            row->setForeground(1, QColor(128, 128, 128));
        }
    }
    for (const std::string& note : log.notes) {
        auto* row = new QTreeWidgetItem(RunLogList, {"(box)", qs(note)});
        row->setToolTip(1, qs(note));
    }
    RunLogList->resizeColumnToContents(0);
    // A run that stopped on a file opens its record at once.
    if (failed) Details->setChecked(true);
}

// ---- help, about, end ----

void Kestro::Help_Click() {
    // Beside the program in the build folder; under share/kestro when installed.
    const QDir programDir(QCoreApplication::applicationDirPath());
    QString document = programDir.filePath("Kestro.pdf");
    if (!QFileInfo::exists(document)) document = QDir::cleanPath(programDir.filePath("../share/kestro/Kestro.pdf"));
    if (!QFileInfo::exists(document) || !QDesktopServices::openUrl(QUrl::fromLocalFile(document)))
        messageBox(ss("The help document could not be opened: " + document), BoxIcon::Exclamation, BoxButtons::Ok);
}

void Kestro::About_Click() {
    QDialog about(this);
    about.setObjectName("AboutBox");
    about.setWindowTitle("About Kestro");
    auto* layout = new QVBoxLayout(&about);
    layout->addWidget(new QLabel("<b>Kestro</b> " + QApplication::applicationVersion(), &about));
    layout->addWidget(new QLabel("Converts spectra and scans from laboratory instruments into plain text\n"
                                 "formats for plotting and fitting programs.",
                                 &about));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok, &about);
    QPushButton* system = buttons->addButton("System Info...", QDialogButtonBox::ActionRole);
    system->setObjectName("SystemInfo");
    connect(system, &QPushButton::clicked, &about, [this] {
        const QString info = QString("System: %1\nKernel: %2 %3\nCPU: %4\nHost: %5\nQt: %6")
                                 .arg(QSysInfo::prettyProductName(), QSysInfo::kernelType(),
                                      QSysInfo::kernelVersion(), QSysInfo::currentCpuArchitecture(),
                                      QSysInfo::machineHostName(), qVersion());
        messageBox(ss(info), BoxIcon::Information, BoxButtons::Ok);
    });
    connect(buttons, &QDialogButtonBox::accepted, &about, &QDialog::accept);
    layout->addWidget(buttons);
    about.exec();
}

void Kestro::End_Click() { close(); }

void Kestro::closeEvent(QCloseEvent* event) {
    remembered::saveGeometry(*this);
    QWidget::closeEvent(event);
}
