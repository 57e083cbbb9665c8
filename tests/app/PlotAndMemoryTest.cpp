// The plot's reading aids and what the main window remembers, on the
// offscreen platform with the settings in a temporary folder.
#include <QAction>
#include <QChart>
#include <QClipboard>
#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QLineSeries>
#include <QListWidget>
#include <QLogValueAxis>
#include <QMenu>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QValueAxis>
#include <QtTest>

#include "app/KestroWindow.h"
#include "plot/PlotView.h"
#include "plot/SpecPlot.h"

namespace {

// y = x * x over channels 0 to 100.
kestro::PlotPoints parabola() {
    kestro::PlotPoints points;
    for (int x = 0; x <= 100; ++x) points.push_back({double(x), double(x * x)});
    return points;
}

QPointF rangeOf(QAbstractAxis* axis) {
    if (auto* log = qobject_cast<QLogValueAxis*>(axis)) return {log->min(), log->max()};
    auto* linear = static_cast<QValueAxis*>(axis);
    return {linear->min(), linear->max()};
}

struct ShownPlot {
    SpecPlot plot;
    explicit ShownPlot(bool logarithmic = false) {
        plot.plot(parabola(), "/data/parabola.odf", QSize(760, 480));
        plot.applyScale(logarithmic);
        plot.show();
        if (!QTest::qWaitForWindowExposed(&plot)) qFatal("the plot did not show");
    }
    QWidget* viewport() const { return plot.view()->viewport(); }
    QPointF xRange() const { return rangeOf(plot.chart()->axes(Qt::Horizontal).first()); }
    QPointF yRange() const { return rangeOf(plot.chart()->axes(Qt::Vertical).first()); }
    // Where the value (x, y) is drawn, in the view's coordinates.
    QPoint at(double x, double y) const {
        QChart* chart = plot.chart();
        return plot.view()->mapFromScene(chart->mapToScene(chart->mapToPosition({x, y}, plot.series())));
    }
    void mouse(QEvent::Type type, Qt::MouseButton button, Qt::MouseButtons held, QPoint pos) {
        QMouseEvent event(type, pos, viewport()->mapToGlobal(pos), button, held, Qt::NoModifier);
        QApplication::sendEvent(viewport(), &event);
    }
    void drag(Qt::MouseButton button, QPoint from, QPoint to) {
        mouse(QEvent::MouseButtonPress, button, button, from);
        mouse(QEvent::MouseMove, Qt::NoButton, button, (from + to) / 2);
        mouse(QEvent::MouseMove, Qt::NoButton, button, to);
        mouse(QEvent::MouseButtonRelease, button, Qt::NoButton, to);
    }
};

void nearly(QPointF actual, QPointF expected, double tolerance) {
    QVERIFY2(std::abs(actual.x() - expected.x()) <= tolerance && std::abs(actual.y() - expected.y()) <= tolerance,
             qPrintable(QString("(%1, %2) is not near (%3, %4)")
                            .arg(actual.x()).arg(actual.y()).arg(expected.x()).arg(expected.y())));
}

}  // namespace

class PlotAndMemoryTest : public QObject {
    Q_OBJECT

    QTemporaryDir settingsDir;

private slots:
    void initTestCase() {
        QVERIFY(settingsDir.isValid());
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, settingsDir.path());
    }

    void wheelZoomsAroundTheCursorAndHomeRestores() {
        ShownPlot p;
        const QPointF fullY = p.yRange();
        nearly(p.xRange(), {0, 100}, 1e-9);
        QWheelEvent wheel(p.at(25, 625), p.viewport()->mapToGlobal(p.at(25, 625)), {}, {0, 120}, Qt::NoButton,
                          Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(p.viewport(), &wheel);
        // One notch keeps 80 % of the range, with channel 25 where it was.
        nearly(p.xRange(), {5, 85}, 0.5);
        QCOMPARE(p.yRange(), fullY);

        QTest::keyClick(p.plot.view(), Qt::Key_Home);
        QCOMPARE(p.xRange(), QPointF(0, 100));
        QCOMPARE(p.yRange(), fullY);
    }

    void rectangleZoomSetsBothRangesAndDoubleClickRestores() {
        ShownPlot p;
        p.drag(Qt::LeftButton, p.at(20, 8000), p.at(60, 2000));
        nearly(p.xRange(), {20, 60}, 0.5);
        nearly(p.yRange(), {2000, 8000}, 50);

        // A click without a drag zooms nowhere.
        const QPointF zoomed = p.xRange();
        p.drag(Qt::LeftButton, p.at(30, 3000), p.at(30, 3000));
        QCOMPARE(p.xRange(), zoomed);

        QTest::mouseDClick(p.viewport(), Qt::LeftButton, {}, p.at(40, 4000));
        QCOMPARE(p.xRange(), QPointF(0, 100));
        QCOMPARE(p.yRange(), QPointF(0, 10000));
    }

    void rightDragAndArrowKeysPan() {
        ShownPlot p;
        p.drag(Qt::RightButton, p.at(50, 5000), p.at(60, 5000));
        // The content follows the mouse: ten channels to the right.
        nearly(p.xRange(), {-10, 90}, 0.5);
        QVERIFY(!p.plot.menu()->isVisible());

        QTest::keyClick(p.plot.view(), Qt::Key_Right);
        nearly(p.xRange(), {0, 100}, 0.5);
        QTest::keyClick(p.plot.view(), Qt::Key_Up);
        QVERIFY(p.yRange().x() > 0);
    }

    void readoutShowsTheNearestPoint() {
        ShownPlot p;
        QLabel* readout = p.plot.view()->readout();
        QVERIFY(!readout->isVisible());
        p.mouse(QEvent::MouseMove, Qt::NoButton, Qt::NoButton, p.at(30.3, 5000));
        QVERIFY(readout->isVisible());
        QCOMPARE(readout->text(), QString("X = 30   Y = 900"));

        // On a log scale a zero is drawn on the floor but read as it is.
        ShownPlot log(true);
        log.plot.view()->showReadout(log.at(0, 1));
        QCOMPARE(log.plot.view()->readout()->text(), QString("X = 0   Y = 0"));
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(log.plot.view(), &leave);
        QVERIFY(!log.plot.view()->readout()->isVisible());
    }

    void contextMenuSavesShowsAxesAndSwitchesTheScale() {
        ShownPlot p;
        p.mouse(QEvent::MouseButtonPress, Qt::RightButton, Qt::RightButton, p.at(50, 5000));
        p.mouse(QEvent::MouseButtonRelease, Qt::RightButton, Qt::NoButton, p.at(50, 5000));
        QVERIFY(p.plot.menu()->isVisible());
        QStringList texts;
        for (QAction* a : p.plot.menu()->actions())
            if (!a->isSeparator()) texts << a->text();
        QCOMPARE(texts, QStringList({"Save image...", "Copy image", "Show axes", "Logarithmic scale"}));
        p.plot.menu()->hide();

        QTemporaryDir out;
        QString suggested;
        p.plot.askImagePath = [&](const QString& s) {
            suggested = s;
            return out.filePath("picture");
        };
        p.plot.findChild<QAction*>("saveImage")->trigger();
        QCOMPARE(suggested, QString("/data/parabola.png"));
        QImage saved(out.filePath("picture.png"));
        QVERIFY(!saved.isNull());
        QCOMPARE(saved.size(), p.plot.view()->size() * p.plot.devicePixelRatio());
        p.plot.findChild<QAction*>("copyImage")->trigger();
        QCOMPARE(QGuiApplication::clipboard()->image().size(), saved.size());

        QAbstractAxis* x = p.plot.chart()->axes(Qt::Horizontal).first();
        QVERIFY(!x->labelsVisible());
        p.plot.findChild<QAction*>("showAxes")->trigger();
        QVERIFY(x->labelsVisible() && x->isLineVisible() && !x->isGridLineVisible());
        p.plot.applyScale(true);  // the next plot keeps them
        QVERIFY(p.plot.chart()->axes(Qt::Vertical).first()->labelsVisible());
    }

    void logarithmicScaleMirrorsTheMainWindowsBox() {
        Kestro window;
        window.plot({{0, 1}, {1, 100}}, 2, "/data/two.odf");
        window.applyScale(false);
        auto* box = window.findChild<QCheckBox*>("LogScale");
        QAction* log = window.specPlot()->findChild<QAction*>("logarithmicScale");
        log->trigger();
        QVERIFY(window.specPlot()->logarithmic());
        QVERIFY(box->isChecked() && window.session().boxes.LogScale);
        QCOMPARE(window.findChild<QLabel*>("linlogLabel")->text(), QString("log"));
        log->trigger();
        QVERIFY(!window.specPlot()->logarithmic() && !box->isChecked());
        QCOMPARE(window.findChild<QLabel*>("linlogLabel")->text(), QString("lin"));
    }

    void aSecondWindowStartsWhereFilesWereLastAdded() {
        QTemporaryDir data;
        QFile(data.filePath("a.cnf")).open(QIODevice::WriteOnly);
        {
            Kestro first;
            QCOMPARE(first.folder(), QDir::currentPath());
            first.show();
            first.showFolder(data.path());
            first.findChild<QListWidget*>("File1")->item(0)->setSelected(true);
            first.findChild<QPushButton*>("addfile")->click();
            first.findChild<QComboBox*>("Combo1")->setCurrentIndex(4);
            emit first.findChild<QComboBox*>("Combo1")->activated(4);
            first.findChild<QCheckBox*>("SPE")->click();
            first.showFolder(QDir::tempPath());  // browsing alone is not remembered
            first.resize(1010, 620);
            first.close();
        }
        Kestro second;
        QCOMPARE(second.folder(), data.path());
        QCOMPARE(second.size(), QSize(1010, 620));
        // Nothing else carries over.
        QCOMPARE(second.findChild<QLineEdit*>("Text1")->text(), QString("*.cnf"));
        QVERIFY(!second.findChild<QCheckBox*>("SPE")->isChecked());
    }

    void aGoneFolderOrTheRootFallsBack() {
        {
            QTemporaryDir gone;
            QSettings("Kestro", "Kestro").setValue("addFilesFolder", gone.path());
        }
        const QString here = QDir::currentPath();
        QCOMPARE(Kestro().folder(), here);
        QDir::setCurrent("/");
        const QString started = Kestro().folder();
        QDir::setCurrent(here);
        QCOMPARE(started, QDir::homePath());
    }
};

QTEST_MAIN(PlotAndMemoryTest)
#include "PlotAndMemoryTest.moc"
