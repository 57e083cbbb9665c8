// Takes the README's pictures: the main window with a queue, the plot of a
// converted spectrum and of an infrared one, and the run log after a file
// that stopped the run. Run under a real X server (scripts/screenshots.sh
// starts one with Xvfb).
#include <QApplication>
#include <QChart>
#include <QCheckBox>
#include <QDir>
#include <QFileInfo>
#include <QLineEdit>
#include <QLineSeries>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>
#include <algorithm>
#include <cstdio>

#include "app/KestroWindow.h"
#include "core/FormatTable.h"
#include "plot/PlotView.h"
#include "plot/SpecPlot.h"

namespace {

void settle() {
    for (int i = 0; i < 20; ++i) QCoreApplication::processEvents();
}

void save(QWidget* widget, const QString& path) {
    settle();
    if (!widget->grab().save(path)) std::fprintf(stderr, "could not write %s\n", qPrintable(path));
}

}  // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName("Kestro");
    if (argc != 4) {
        std::fprintf(stderr, "usage: kestro-screenshots OUTPUT_FOLDER EXAMPLES_FOLDER DAMAGED_FILE\n");
        return 2;
    }
    const QDir out(QString::fromLocal8Bit(argv[1]));
    const QString examples = QString::fromLocal8Bit(argv[2]);
    const QString damaged = QString::fromLocal8Bit(argv[3]);

    Kestro window;
    window.waitScale = 0.1;
    window.answerMessage = [](const std::string&, kestro::BoxIcon, kestro::BoxButtons) { return kestro::Answer::Ok; };
    window.move(0, 0);
    window.show();
    window.findChild<QLineEdit*>("Text1")->setText("*.*");
    kestro::Text1_Change(window.session(), "*.cnf;*.chn;*.spe;*.spx");
    window.boxesChanged();
    window.showFolder(examples);
    auto* files = window.findChild<QListWidget*>("File1");
    for (int row = 0; row < files->count(); ++row) files->item(row)->setSelected(true);
    window.findChild<QPushButton*>("addfile")->click();
    window.findChild<QCheckBox*>("SPE")->click();
    window.findChild<QCheckBox*>("DsGr")->click();
    save(&window, out.filePath("kestro-window.png"));

    window.findChild<QPushButton*>("RunCode")->click();
    window.specPlot()->move(60, 60);
    save(window.specPlot(), out.filePath("kestro-plot.png"));
    save(&window, out.filePath("kestro-finished.png"));

    // The same plot with its axes shown and the readout on the highest point.
    SpecPlot* plot = window.specPlot();
    plot->showAxes(true);
    settle();
    const QList<QPointF> points = plot->series()->points();
    const auto highest = std::max_element(points.begin(), points.end(),
                                          [](QPointF a, QPointF b) { return a.y() < b.y(); });
    if (highest != points.end()) {
        const QPointF inChart = plot->chart()->mapToPosition(*highest, plot->series());
        plot->view()->showReadout(plot->view()->mapFromScene(plot->chart()->mapToScene(inChart)));
    }
    plot->view()->viewport()->update();
    save(plot, out.filePath("kestro-plot-readout.png"));

    // An infrared ".spa" result: X falls from high to low wavenumbers.
    plot->view()->hideReadout();
    window.session().addToQueue("thermo.spa", QDir(examples).filePath("thermo.spa").toStdString());
    window.findChild<QPushButton*>("RunCode")->click();
    save(plot, out.filePath("kestro-plot-spa.png"));

    // A run stopped by a damaged file: the record opens under the status line.
    plot->hide();
    for (const char* name : {"iaea.spe", "ortec.chn"})
        window.session().addToQueue(name, QDir(examples).filePath(name).toStdString());
    window.session().addToQueue(QFileInfo(damaged).fileName().toStdString(), damaged.toStdString());
    window.session().addToQueue("genie.cnf", QDir(examples).filePath("genie.cnf").toStdString());
    window.findChild<QPushButton*>("RunCode")->click();
    window.resize(window.width(), window.height() + 140);
    save(&window, out.filePath("kestro-runlog.png"));
    return 0;
}
