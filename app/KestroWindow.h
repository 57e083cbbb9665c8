#pragma once
// The main window "Data format conversion": drive, folder and file lists,
// the queue, the format selector, the output boxes and the convert button.
// It owns the Session and is its Host.
#include <QWidget>
#include <functional>

#include "core/Host.h"
#include "core/Session.h"

class QCheckBox;
class QComboBox;
class QFileSystemModel;
class QLabel;
class QLineEdit;
class QListWidget;
class QProgressBar;
class QPushButton;
class QToolButton;
class QTreeView;
class QTreeWidget;
class SpecPlot;

class Kestro : public QWidget, public kestro::Host {
    Q_OBJECT
public:
    explicit Kestro(const QString& commandLine = QString(), QWidget* parent = nullptr);
    ~Kestro() override;

    kestro::Session& session() { return session_; }
    SpecPlot* specPlot() const { return plot_; }

    // Test seams: answer message boxes instead of showing them, and scale the
    // waits (0 in tests).
    std::function<kestro::Answer(const std::string&, kestro::BoxIcon, kestro::BoxButtons)> answerMessage;
    double waitScale = 1.0;

    // Shows the folder and fills the file list from it.
    void showFolder(const QString& path);
    QString folder() const { return folder_; }

    // Where the plot window goes (frame rectangles, global coordinates):
    // fully on `screen`, beside `main` where there is room, otherwise over it
    // but clear of the status line's rows statusTop to statusBottom.
    static QRect plotPlacement(const QRect& screen, const QRect& main, QSize plot, int statusTop, int statusBottom);

    // Host
    void showStatus(const std::string& text, kestro::StatusColour colour) override;
    void showProgress(int value) override;
    void beep() override;
    kestro::Answer messageBox(const std::string& text, kestro::BoxIcon icon, kestro::BoxButtons buttons) override;
    void plot(const kestro::PlotPoints& points, int64_t count, const std::string& name) override;
    void applyScale(bool logarithmic) override;
    void wait(double seconds) override;
    void boxesChanged() override;
    void queueChanged() override;
    void runLogged(const kestro::RunLog& log) override;

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private slots:
    void Drive1_Change(int index);
    void Dir1_Click(const QModelIndex& index);
    void File1_DblClick();
    void addfile_Click();
    void remove_Click();
    void SPE_Click(bool checked);
    void SPO_Click(bool checked);
    void LogScale_Click(bool checked);
    void RunCode_Click();
    void Help_Click();
    void About_Click();
    void End_Click();
    void Text1_Change(const QString& text);
    void Combo1_Click(int index);
    void Combo1_Change(const QString& text);
    void Dir1_CurrentChanged(const QModelIndex& index);
    void Path_Enter();
    void revealFolder(const QString& loaded);

private:
    void createControls();
    void arrangeControls();
    void connectHandlers();
    void fillDrives();
    void fillFileList();
    void queueFiles(const QStringList& fullPaths);
    void afterQueueing();
    void paintNow();
    void placePlot();
    void showResult(const QString& odfName);

    kestro::Session session_;
    QString folder_;
    QString shownPattern_;  // the pattern the file list was last filled with
    bool syncing_ = false;
    bool revealing_ = false;  // the tree still scrolls to the folder as its parents load

    QComboBox* Drive1;
    QTreeView* Dir1;
    QFileSystemModel* folders_;
    QListWidget* File1;
    QLineEdit* Path;
    QLineEdit* Text1;
    QComboBox* Combo1;
    QListWidget* List1;
    QListWidget* List2;
    QPushButton* addfile;
    QPushButton* remove;
    QPushButton* RunCode;
    QPushButton* End;
    QPushButton* About;
    QPushButton* Help;
    QCheckBox* SPE;
    QCheckBox* SPO;
    QCheckBox* cOMDAQ;
    QCheckBox* cDXP;
    QCheckBox* DsGr;
    QCheckBox* LogScale;
    QCheckBox* ModernRead;
    QLabel* MakeSPE;
    QLabel* MakeSPO;
    QLabel* rOMDAQ;
    QLabel* rDXP;
    QLabel* displayGraph;
    QLabel* linlogLabel;
    QLineEdit* Text2;
    QProgressBar* ProgressBar1;
    QToolButton* Details;
    QTreeWidget* RunLogList;
    QLabel* Label1;
    QLabel* Label2;
    QLabel* Label3;
    SpecPlot* plot_;
};
