// The main window driven through its real widgets on the offscreen platform.
#include <QChart>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QLineSeries>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

#include "WindowTestSupport.h"
#include "app/KestroWindow.h"
#include "plot/SpecPlot.h"

using namespace kestro;

class KestroWindowTest : public QObject {
    Q_OBJECT

    struct Box {
        std::string text;
        BoxIcon icon;
    };

    // A window whose message boxes are recorded and answered "No", with no waits.
    struct Fixture {
        QTemporaryDir dir;
        Kestro window;
        std::vector<Box> boxes;
        Fixture() {
            window.show();
            if (!QTest::qWaitForWindowExposed(&window)) qFatal("the window did not show");
            window.waitScale = 0;
            window.answerMessage = [this](const std::string& text, BoxIcon icon, BoxButtons) {
                boxes.push_back({text, icon});
                return Answer::No;
            };
        }
        template <typename W>
        W* get(const char* name) {
            return testing::control<W>(window, name);
        }
        QString file(const QString& name, const QByteArray& bytes) { return testing::writeTestFile(dir, name, bytes); }
        void click(const char* button) { QTest::mouseClick(get<QPushButton>(button), Qt::LeftButton); }
        void tick(const char* box) { QTest::mouseClick(get<QCheckBox>(box), Qt::LeftButton); }
        // Shows the folder with `pattern` typed, and selects the named files.
        void select(const QString& pattern, const QStringList& names) {
            QLineEdit* text1 = get<QLineEdit>("Text1");
            text1->clear();
            QTest::keyClicks(text1, pattern);
            window.showFolder(dir.path());
            QListWidget* files = get<QListWidget>("File1");
            for (int row = 0; row < files->count(); ++row)
                files->item(row)->setSelected(names.contains(files->item(row)->text()));
        }
        QStringList rows(const char* list) {
            QStringList out;
            QListWidget* w = get<QListWidget>(list);
            for (int row = 0; row < w->count(); ++row) out << w->item(row)->text();
            return out;
        }
    };

private slots:
    void controlsCarryTheirNamesAndCaptions() {
        Fixture f;
        QCOMPARE(f.window.windowTitle(), QString("Data format conversion"));
        QCOMPARE(f.get<QLabel>("MakeSPE")->text(), QString("SPE [AIEA]"));
        QCOMPARE(f.get<QLabel>("MakeSPO")->text(), QString("SPO [Gpx]"));
        QCOMPARE(f.get<QLineEdit>("Text1")->toolTip(), QString("type extension"));
        QCOMPARE(f.get<QLineEdit>("Text1")->text(), QString("*.cnf"));
        QCOMPARE(f.get<QListWidget>("List1")->toolTip(), QString("select to remove"));
        QCOMPARE(f.get<QComboBox>("Combo1")->count(), 24);
        QVERIFY(!f.get<QCheckBox>("cOMDAQ")->isVisibleTo(&f.window));
        QCheckBox* modern = f.get<QCheckBox>("ModernRead");
        QCOMPARE(modern->text(), QString("Modern readers"));
        QVERIFY(!modern->isChecked());
        QVERIFY(!modern->toolTip().isEmpty());
        f.tick("ModernRead");
        QVERIFY(f.window.session().boxes.ModernRead);
    }

    void queueingAndRemovingKeepBothListsParallel() {
        Fixture f;
        f.file("a.odf", "0 1\r\n");
        f.file("b.odf", "0 1\r\n");
        f.file("c.odf", "0 1\r\n");
        f.file("skip.dat", "1\r\n");
        f.select("*.odf", {"a.odf", "b.odf", "c.odf"});
        QCOMPARE(f.rows("File1"), QStringList({"a.odf", "b.odf", "c.odf"}));
        f.click("addfile");
        QCOMPARE(f.rows("List1"), QStringList({"a.odf", "b.odf", "c.odf"}));
        QCOMPARE(f.rows("List2").at(1), QDir(f.dir.path()).filePath("b.odf"));

        f.get<QListWidget>("List1")->item(1)->setSelected(true);
        f.click("remove");
        QCOMPARE(f.rows("List1"), QStringList({"a.odf", "c.odf"}));
        QCOMPARE(f.rows("List2"),
                 QStringList({QDir(f.dir.path()).filePath("a.odf"), QDir(f.dir.path()).filePath("c.odf")}));
        QCOMPARE(f.window.session().List2.size(), size_t{2});
    }

    void speAndSpoExcludeEachOther() {
        Fixture f;
        f.tick("SPE");
        QVERIFY(f.get<QCheckBox>("SPE")->isChecked());
        f.tick("SPO");
        QVERIFY(f.get<QCheckBox>("SPO")->isChecked());
        QVERIFY(!f.get<QCheckBox>("SPE")->isChecked());
        QVERIFY(f.window.session().boxes.SPO && !f.window.session().boxes.SPE);
    }

    void formatRowsAndTypedTokens() {
        Fixture f;
        QComboBox* combo = f.get<QComboBox>("Combo1");
        combo->setCurrentIndex(4);
        emit combo->activated(4);
        QVERIFY(f.get<QCheckBox>("cOMDAQ")->isVisibleTo(&f.window));
        QCOMPARE(f.get<QLineEdit>("Text1")->text(), QString("*.odf"));

        combo->setCurrentIndex(6);
        emit combo->activated(6);
        QCOMPARE(f.window.session().formatOption, std::string("S100"));

        QLineEdit* text1 = f.get<QLineEdit>("Text1");
        text1->clear();
        QTest::keyClicks(text1, "-odat");
        QCOMPARE(text1->text(), QString("*.dat"));
        QVERIFY(f.get<QCheckBox>("SPO")->isChecked());
        QVERIFY(!f.get<QCheckBox>("SPE")->isChecked());
    }

    void emptyQueueSaysAddFilesFirstInRed() {
        Fixture f;
        f.click("RunCode");
        QLineEdit* status = f.get<QLineEdit>("Text2");
        QCOMPARE(status->text(), QString("Add files first !"));
        QCOMPARE(status->palette().color(QPalette::Text), QColor(255, 0, 0));
    }

    void batchConvertsQueuedFilesAndPlotsThem() {
        Fixture f;
        f.file("x.odf", "0 10\r\n1 20\r\n2 0\r\n3 1000\r\n");
        f.file("y.dat", "5 6 7\r\n");
        f.select("*.odf;*.dat", {"x.odf", "y.dat"});
        f.click("addfile");
        f.tick("SPE");
        f.tick("DsGr");
        f.tick("LogScale");
        QCOMPARE(f.get<QLabel>("linlogLabel")->text(), QString("log"));
        f.click("RunCode");

        QCOMPARE(f.get<QLineEdit>("Text2")->text(), QString("Finished 2 files"));
        QCOMPARE(f.get<QLineEdit>("Text2")->palette().color(QPalette::Text), QColor(0, 0, 255));
        QVERIFY(QFile::exists(f.dir.filePath("x.spe")));
        QVERIFY(QFile::exists(f.dir.filePath("y.odf")));
        QVERIFY(f.rows("List1").isEmpty());
        QCOMPARE(f.get<QProgressBar>("ProgressBar1")->value(), 0);
        QVERIFY(f.boxes.empty());

        // The last plot is y.odf: channels 0 to 2 with 5, 6, 7, on a log scale.
        SpecPlot* plot = f.window.specPlot();
        QCOMPARE(plot->chart()->title(), QDir(f.dir.path()).filePath("y.odf"));
        QCOMPARE(plot->series()->count(), 3);
        QCOMPARE(plot->series()->at(2), QPointF(2, 7));
        QVERIFY(plot->logarithmic());
        QCOMPARE(plot->yMin(), 1.0);
        QCOMPARE(plot->yMax(), 10.0);
    }

    void failuresShowTheDriversMessage() {
        Fixture f;
        f.window.session().addToQueue("gone.dat", ss(f.dir.filePath("gone.dat")));
        f.click("RunCode");
        QCOMPARE(f.boxes.size(), size_t{1});
        QVERIFY(f.boxes[0].text.find("Error 53 File not found") != std::string::npos);
        QCOMPARE(f.boxes[0].icon, BoxIcon::Information);
        QVERIFY(f.rows("List1").isEmpty());
    }

    void aFailedFileDoesNotBreakTheNextRun() {
        Fixture f;
        // The reader fails on its third count and leaves its files open.
        f.file("bad.mpa", "mpafmt=asc\r\n[ADC0]\r\nrange=9\r\nactive=1\r\n[ADC1]\r\n[ADC2]\r\n[ADC3]\r\n"
                          "[D]\r\na\r\nb\r\n1\r\n");
        f.select("*.mpa", {"bad.mpa"});
        f.click("addfile");
        f.click("RunCode");
        QCOMPARE(f.boxes.size(), size_t{1});
        QVERIFY(f.boxes[0].text.find("Error 62 Input past end of file") != std::string::npos);

        // The same reader's numbers are free for the next run, and LF-only text converts.
        f.file("good.mpa", "mpafmt=asc\n[ADC0]\nrange=3\nactive=1\n[ADC1]\n[ADC2]\n[ADC3]\n[D]\na\nb\n7\n");
        f.select("*.mpa", {"good.mpa"});
        f.click("addfile");
        f.click("RunCode");
        QCOMPARE(f.boxes.size(), size_t{1});
        QCOMPARE(f.get<QLineEdit>("Text2")->text(), QString("Finished 1 files"));
        QFile odf(f.dir.filePath("F0good.odf"));
        QVERIFY(odf.open(QIODevice::ReadOnly));
        QCOMPARE(odf.readAll(), QByteArray(" 0  0 \r\n 1  0 \r\n 2  7 \r\n"));
    }

    void flatResultsGetAZeroHeightLinearRange() {
        SpecPlot plot;
        plot.plot({{0, 5}, {1, 5}}, "flat", QSize(100, 100));
        plot.applyScale(false);
        QCOMPARE(plot.yMin(), 5.0);
        QCOMPARE(plot.yMax(), 5.0);
    }

private:
    static std::string ss(const QString& s) { return s.toStdString(); }
};

QTEST_MAIN(KestroWindowTest)
#include "KestroWindowTest.moc"
