// Finding one's way in the window: plots of every result whichever way X
// runs, the folder in sight, and the record of the last run. Offscreen, with
// the settings in a temporary folder.
#include <QChart>
#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QFileSystemModel>
#include <QGraphicsTextItem>
#include <QLabel>
#include <QLineEdit>
#include <QLineSeries>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QSettings>
#include <QTemporaryDir>
#include <QToolButton>
#include <QTreeView>
#include <QTreeWidget>
#include <QValueAxis>
#include <QtTest>
#include <cmath>

#include "WindowTestSupport.h"
#include "app/KestroWindow.h"
#include "plot/PlotView.h"
#include "plot/SpecPlot.h"

using namespace kestro;

namespace {

QValueAxis* xAxisOf(const SpecPlot& plot) { return static_cast<QValueAxis*>(plot.chart()->axes(Qt::Horizontal).first()); }

// 1, 2 or 5 times a power of ten.
bool roundStep(double step) {
    const double mantissa = step / std::pow(10.0, std::floor(std::log10(step) + 1e-9));
    return std::abs(mantissa - 1) < 1e-9 || std::abs(mantissa - 2) < 1e-9 || std::abs(mantissa - 5) < 1e-9;
}

// The texts the chart's scene shows: title and axis labels.
QStringList shownTexts(const SpecPlot& plot) {
    QStringList texts;
    for (QGraphicsItem* item : plot.view()->scene()->items())
        if (auto* text = dynamic_cast<QGraphicsTextItem*>(item); text && text->isVisible())
            texts << text->toPlainText();
    return texts;
}

QRect globalRect(QWidget* w) { return QRect(w->mapToGlobal(QPoint()), w->size()); }

// A shown window whose message boxes are kept and answered "OK", with no waits.
struct Window {
    QTemporaryDir dir;
    Kestro window;
    std::vector<std::string> messages;
    Window() {
        window.waitScale = 0;
        window.answerMessage = [this](const std::string& text, BoxIcon, BoxButtons) {
            messages.push_back(text);
            return Answer::Ok;
        };
        window.show();
        if (!QTest::qWaitForWindowExposed(&window)) qFatal("the window did not show");
    }
    template <typename W>
    W* get(const char* name) {
        return testing::control<W>(window, name);
    }
    QString file(const QString& name, const QByteArray& bytes) { return testing::writeTestFile(dir, name, bytes); }
    void queue(const QStringList& names) {
        for (const QString& name : names) window.session().addToQueue(name.toStdString(), dir.filePath(name).toStdString());
    }
    void run() { QTest::mouseClick(get<QPushButton>("RunCode"), Qt::LeftButton); }
    QStringList files() {
        QStringList out;
        auto* list = get<QListWidget>("File1");
        for (int row = 0; row < list->count(); ++row) out << list->item(row)->text();
        return out;
    }
    // The run log's rows as "name | result".
    QStringList log() {
        QStringList out;
        auto* tree = get<QTreeWidget>("RunLog");
        for (int row = 0; row < tree->topLevelItemCount(); ++row)
            out << tree->topLevelItem(row)->text(0) + " | " + tree->topLevelItem(row)->text(1);
        return out;
    }
};

struct ShownPlot {
    SpecPlot plot;
    ShownPlot() {
        kestro::PlotPoints parabola;
        for (int x = 0; x <= 100; ++x) parabola.push_back({double(x), double(x * x)});
        plot.plot(parabola, "/data/parabola.odf", QSize(760, 480));
        plot.applyScale(false);
        plot.show();
        if (!QTest::qWaitForWindowExposed(&plot)) qFatal("the plot did not show");
    }
    QPoint at(double x, double y) const {
        QChart* chart = plot.chart();
        return plot.view()->mapFromScene(chart->mapToScene(chart->mapToPosition({x, y}, plot.series())));
    }
    QString readout() const { return plot.view()->readout()->text(); }
};

}  // namespace

class WindowFindingTest : public QObject {
    Q_OBJECT

    QTemporaryDir settingsDir;

private slots:
    void initTestCase() {
        QVERIFY(settingsDir.isValid());
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, settingsDir.path());
    }

    void xRangeRunsFromTheSmallestToTheLargestX() {
        SpecPlot plot;
        // Infrared: wavenumbers falling from 6000 to 650.
        plot.plot({{6000, 1}, {3000, 5}, {650, 2}}, "/data/falling.odf", QSize(400, 300));
        plot.applyScale(false);
        QCOMPARE(xAxisOf(plot)->min(), 650.0);
        QCOMPARE(xAxisOf(plot)->max(), 6000.0);
        QCOMPARE(plot.series()->at(0), QPointF(6000, 1));  // drawn in file order
        QVERIFY(roundStep(xAxisOf(plot)->tickInterval()));
        QCOMPARE(xAxisOf(plot)->tickAnchor(), 0.0);

        // Unordered, and after a plot with another range: nothing of it stays.
        plot.plot({{5, 1}, {-3, 2}, {12, 0}, {1, 4}}, "/data/unordered.odf", QSize(400, 300));
        plot.applyScale(true);
        QCOMPARE(xAxisOf(plot)->min(), -3.0);
        QCOMPARE(xAxisOf(plot)->max(), 12.0);
        QCOMPARE(plot.series()->at(1).x(), -3.0);

        // A zoomed view gets round ticks of its own.
        plot.show();
        QVERIFY(QTest::qWaitForWindowExposed(&plot));
        plot.chart()->zoom(3.7);
        QVERIFY(roundStep(xAxisOf(plot)->tickInterval()));
        QVERIFY(xAxisOf(plot)->max() - xAxisOf(plot)->min() < 15);
    }

    void axesShowOnlyTheLabelsOfThePlotShown() {
        SpecPlot plot;
        plot.showAxes(true);
        plot.plot({{0, 0}, {60, 600}}, "/data/first.odf", QSize(400, 300));
        plot.applyScale(false);
        plot.show();
        QVERIFY(QTest::qWaitForWindowExposed(&plot));
        // Within a run, as here, nothing deferred is deleted until it ends.
        for (int i = 0; i < 20; ++i) QCoreApplication::processEvents();
        plot.plot({{4000, 0.5}, {1000, 0.8}}, "/data/next.odf", QSize(400, 300));
        plot.applyScale(false);
        for (int i = 0; i < 20; ++i) QCoreApplication::processEvents();
        const QStringList texts = shownTexts(plot);
        QVERIFY2(texts.contains("4000") && texts.contains("0.50"), qPrintable(texts.join(' ')));
        for (const QString& text : texts) {
            bool number = false;
            const double v = text.toDouble(&number);
            QVERIFY2(!number || (v >= 0.5 && v <= 0.8) || (v >= 1000 && v <= 4000), qPrintable(text));
        }
    }

    void readoutFollowsZoomPanAndHome() {
        ShownPlot p;
        p.plot.view()->showReadout(p.at(30, 900));
        QCOMPARE(p.readout(), QString("X = 30   Y = 900"));
        // Zoomed twice around the middle (50): the still cursor is now over 40.
        p.plot.chart()->zoom(2);
        QTRY_COMPARE(p.readout(), QString("X = 40   Y = 1600"));
        QTest::keyClick(p.plot.view(), Qt::Key_Home);
        QTRY_COMPARE(p.readout(), QString("X = 30   Y = 900"));
        // The view moves ten channels: the cursor is over channel 40.
        QTest::keyClick(p.plot.view(), Qt::Key_Right);
        QTRY_COMPARE(p.readout(), QString("X = 40   Y = 1600"));
        QTest::keyClick(p.plot.view(), Qt::Key_Home);
        QTRY_COMPARE(p.readout(), QString("X = 30   Y = 900"));
    }

    void logBoxRedrawsTheShownPlot() {
        Window w;
        w.window.plot({{0, 1}, {1, 100}}, 2, "/data/two.odf");
        w.window.applyScale(false);
        QVERIFY(!w.window.specPlot()->logarithmic());
        QTest::mouseClick(w.get<QCheckBox>("LogScale"), Qt::LeftButton);
        QVERIFY(w.window.specPlot()->logarithmic());
        QCOMPARE(w.window.specPlot()->yMax(), 100.0);
        QTest::mouseClick(w.get<QCheckBox>("LogScale"), Qt::LeftButton);
        QVERIFY(!w.window.specPlot()->logarithmic());
    }

    void plotStepsThroughEveryRangeOfARawFile() {
        Window w;
        QVERIFY(QFile::copy(KESTRO_SAMPLES_DIR "/raw/format1.raw", w.dir.filePath("format1.raw")));
        w.queue({"format1.raw"});
        QTest::mouseClick(w.get<QCheckBox>("DsGr"), Qt::LeftButton);
        QTest::mouseClick(w.get<QCheckBox>("ModernRead"), Qt::LeftButton);
        w.run();
        SpecPlot* plot = w.window.specPlot();
        QComboBox* results = plot->results();
        QVERIFY(results->isVisibleTo(plot));
        QCOMPARE(results->count(), 3);
        QCOMPARE(results->currentIndex(), 0);
        QCOMPARE(plot->chart()->title(), results->itemData(0).toString());
        QCOMPARE(plot->series()->count(), 101);

        results->setCurrentIndex(1);
        emit results->activated(1);
        QCOMPARE(plot->chart()->title(), results->itemData(1).toString());
        QCOMPARE(plot->series()->count(), 26);
        results->setCurrentIndex(2);
        emit results->activated(2);
        QCOMPARE(plot->series()->count(), 51);

        // A file with one result shows no selector.
        w.window.plot({{0, 1}, {1, 2}}, 2, "/data/one.odf");
        QVERIFY(!results->isVisibleTo(plot));
    }

    void plotWindowStaysOnScreenAndClearOfTheStatusLine() {
        const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
        {
            // No room beside: over the main window, above its status line.
            Window w;
            w.window.setGeometry(QRect(screen.topLeft(), QSize(screen.width() * 2 / 3, screen.height() * 2 / 3)));
            QTest::qWait(20);
            w.window.plot({{0, 1}, {1, 2}}, 2, "/data/a.odf");
            const QRect plot = w.window.specPlot()->frameGeometry();
            QVERIFY2(screen.contains(plot), qPrintable(QString("%1,%2 %3x%4").arg(plot.x()).arg(plot.y())
                                                            .arg(plot.width()).arg(plot.height())));
            QVERIFY(!plot.intersects(globalRect(w.get<QLineEdit>("Text2"))));
            QVERIFY(!plot.intersects(globalRect(w.get<QProgressBar>("ProgressBar1"))));
            // The next plot keeps it where it is, still on screen.
            w.window.specPlot()->move(screen.topLeft() + QPoint(30, 20));
            w.window.plot({{0, 1}, {1, 2}}, 2, "/data/b.odf");
            QVERIFY(screen.contains(w.window.specPlot()->frameGeometry()));
            QCOMPARE(w.window.specPlot()->frameGeometry().top(), screen.top() + 20);
        }

        // The rule itself on a larger screen (rows 900 to 940 are the status line).
        const QRect wide(0, 0, 1920, 1080);
        const QSize plot(840, 1050);
        QCOMPARE(Kestro::plotPlacement(wide, QRect(0, 0, 800, 1000), plot, 900, 940), QRect(800, 0, 840, 1050));
        QCOMPARE(Kestro::plotPlacement(wide, QRect(1100, 50, 800, 1000), plot, 900, 940), QRect(260, 30, 840, 1050));
        // No room on either side: above the status line, shortened to fit.
        QCOMPARE(Kestro::plotPlacement(wide, QRect(500, 0, 800, 1000), plot, 900, 940), QRect(540, 0, 840, 900));
        // Status line near the top: below it.
        QCOMPARE(Kestro::plotPlacement(wide, QRect(500, 0, 800, 250), plot, 200, 240), QRect(540, 241, 840, 839));
    }

    void folderTreeAndPathFieldShowWhereYouAre() {
        Window w;
        QDir(w.dir.path()).mkpath("deep/er/a");
        QDir(w.dir.path()).mkpath("deep/er/b");
        const QString a = w.dir.filePath("deep/er/a"), b = w.dir.filePath("deep/er/b");
        QFile(b + "/in-b.cnf").open(QIODevice::WriteOnly);
        const QString longName = "a-file-name-much-longer-than-the-file-list-is-wide-" + QString(60, 'x') + ".cnf";
        QFile(a + "/" + longName).open(QIODevice::WriteOnly);

        w.window.showFolder(a);
        auto* tree = w.get<QTreeView>("Dir1");
        auto* model = static_cast<QFileSystemModel*>(tree->model());
        QTRY_COMPARE(model->filePath(tree->currentIndex()), a);
        QVERIFY(tree->selectionModel()->isSelected(tree->currentIndex()));
        QTRY_VERIFY(tree->viewport()->rect().contains(tree->visualRect(tree->currentIndex()).center()));
        QCOMPARE(w.get<QLineEdit>("Path")->text(), QDir::toNativeSeparators(a));
        QCOMPARE(w.get<QListWidget>("File1")->item(0)->toolTip(), longName);

        // The arrow keys change the folder as a click does.
        QTRY_COMPARE(model->rowCount(model->index(w.dir.filePath("deep/er"))), 2);
        tree->setFocus();
        QTest::keyClick(tree, Qt::Key_Down);
        QCOMPARE(w.window.folder(), b);
        QCOMPARE(w.files(), QStringList({"in-b.cnf"}));
        QCOMPARE(w.get<QLineEdit>("Path")->text(), QDir::toNativeSeparators(b));

        // A typed path: a good one is shown, a bad one only explained.
        QLineEdit* path = w.get<QLineEdit>("Path");
        path->setText(a);
        QTest::keyClick(path, Qt::Key_Return);
        QCOMPARE(w.window.folder(), a);
        QCOMPARE(w.files(), QStringList({longName}));
        QTRY_COMPARE(model->filePath(tree->currentIndex()), a);
        path->setText(a + "/nowhere");
        QTest::keyClick(path, Qt::Key_Return);
        QCOMPARE(w.messages.size(), size_t{1});
        QVERIFY(QString::fromStdString(w.messages[0]).contains("nowhere\" does not exist"));
        QCOMPARE(w.window.folder(), a);
        QCOMPARE(w.files(), QStringList({longName}));
        QCOMPARE(path->text(), QDir::toNativeSeparators(a));
    }

    void runLogAfterAGoodBatch() {
        Window w;
        w.file("x.odf", "0 10\r\n1 20\r\n");
        w.file("y.dat", "5 6 7\r\n");
        w.queue({"x.odf", "y.dat"});
        QTest::mouseClick(w.get<QCheckBox>("SPE"), Qt::LeftButton);
        auto* details = w.get<QToolButton>("Details");
        QCOMPARE(details->text(), QString("Details"));
        QVERIFY(!w.get<QTreeWidget>("RunLog")->isVisible());
        w.run();
        QCOMPARE(w.log(), QStringList({"x.odf | wrote x.spe", "y.dat | wrote y.odf, y.spe"}));
        QCOMPARE(w.window.session().runLog.files[1].outputs.front(), w.dir.filePath("y.odf").toStdString());
        // Closed until asked for when all went well.
        QVERIFY(!w.get<QTreeWidget>("RunLog")->isVisible());
        QTest::mouseClick(details, Qt::LeftButton);
        QVERIFY(w.get<QTreeWidget>("RunLog")->isVisible());
        QTest::mouseClick(details, Qt::LeftButton);
        QVERIFY(!w.get<QTreeWidget>("RunLog")->isVisible());

        // The next run starts a new record.
        w.run();
        QCOMPARE(w.log(), QStringList());
    }

    void runLogAfterARunTimeError() {
        Window w;
        w.file("good.odf", "0 1\r\n1 2\r\n");
        // A Genie2K file cut short: its records point past the end.
        QFile whole(KESTRO_SAMPLES_DIR "/cnf/SMP00011.CNF");
        QVERIFY(whole.open(QIODevice::ReadOnly));
        w.file("cut.cnf", whole.read(20000));
        w.file("later.odf", "0 1\r\n");
        w.queue({"good.odf", "cut.cnf", "later.odf", "good.odf"});
        QTest::mouseClick(w.get<QCheckBox>("SPE"), Qt::LeftButton);
        w.run();
        // The driver's message, as it always was (it names no file).
        QCOMPARE(w.messages.size(), size_t{1});
        QVERIFY(QString::fromStdString(w.messages[0]).startsWith("! CHECK FOR ERROR !\nError 63 Bad record number"));
        const QStringList rows = w.log();
        QCOMPARE(rows.size(), 4);
        QCOMPARE(rows[0], QString("good.odf | wrote good.spe"));
        QVERIFY2(rows[1].startsWith("cut.cnf | stopped: Error 63 Bad record number: the file ends before its "
                                    "contents do (damaged or cut short)"),
                 qPrintable(rows[1]));
        QCOMPARE(rows[2], QString("later.odf | not reached"));
        QCOMPARE(rows[3], QString("good.odf | not reached"));
        // A run that stopped shows its record at once.
        QVERIFY(w.get<QTreeWidget>("RunLog")->isVisible());
        QVERIFY(w.get<QToolButton>("Details")->isChecked());

        // Outputs written before the failure are named.
        w.file("bad.mpa", "mpafmt=asc\r\n[ADC0]\r\nrange=9\r\nactive=1\r\n[ADC1]\r\n[ADC2]\r\n[ADC3]\r\n"
                          "[D]\r\na\r\nb\r\n1\r\n");
        w.queue({"bad.mpa"});
        w.run();
        QCOMPARE(w.log().size(), 1);
        QVERIFY(w.log()[0].startsWith("bad.mpa | stopped: Error 62 Input past end of file"));
        QVERIFY(w.log()[0].endsWith("written before it stopped: F0bad.odf"));
    }

    void runLogAfterARefusalAndChangedBoxes() {
        Window w;
        w.file("shim.spc", "anything");
        w.file("z.odf", "0 1\r\n");
        // The plot boxes first: choosing ".spa" unticks LOG.
        QTest::mouseClick(w.get<QCheckBox>("DsGr"), Qt::LeftButton);
        QTest::mouseClick(w.get<QCheckBox>("LogScale"), Qt::LeftButton);
        auto* combo = w.get<QComboBox>("Combo1");
        const int spa = combo->findText("Thermo-Scientific *.spa");
        combo->setCurrentIndex(spa);
        emit combo->activated(spa);
        QVERIFY(!w.get<QCheckBox>("LogScale")->isChecked());
        QTest::mouseClick(w.get<QCheckBox>("DsGr"), Qt::LeftButton);  // no plots here
        const int shimadzu = combo->findText("Shimadzu *.spc");
        combo->setCurrentIndex(shimadzu);
        emit combo->activated(shimadzu);
        w.queue({"shim.spc", "z.odf"});
        w.run();
        QCOMPARE(w.get<QLineEdit>("Text2")->text(), QString("Finished 2 files"));
        const QStringList rows = w.log();
        QCOMPARE(rows.size(), 3);
        QCOMPARE(rows[0], QString("shim.spc | stopped: Shimadzu .spc conversion not yet available, please be "
                                  "patient grassshopper"));
        QCOMPARE(rows[1], QString("z.odf | wrote z.dat"));
        QCOMPARE(rows[2], QString("(box) | LOG unticked by choosing \"Thermo-Scientific *.spa\""));

        // A reader that unticks GRAPH says so.
        QVERIFY(QFile::copy(KESTRO_SAMPLES_DIR "/../../examples/shimadzu.pho", w.dir.filePath("shimadzu.pho")));
        const int pho = combo->findText("Shimadzu *.pho");
        combo->setCurrentIndex(pho);
        emit combo->activated(pho);
        QTest::mouseClick(w.get<QCheckBox>("DsGr"), Qt::LeftButton);
        w.queue({"shimadzu.pho"});
        w.run();
        QCOMPARE(w.log(), QStringList({"shimadzu.pho | wrote shimadzu.hdrx",
                                       "(box) | GRAPH unticked by the reader of shimadzu.pho"}));
    }
};

QTEST_MAIN(WindowFindingTest)
#include "WindowFindingTest.moc"
