#include "plot/SpecPlot.h"

#include <QAction>
#include <QChart>
#include <QClipboard>
#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLabel>
#include <QLineSeries>
#include <QLogValueAxis>
#include <QMenu>
#include <QMessageBox>
#include <QValueAxis>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

#include "plot/PlotView.h"

namespace {

const QColor FormBackground(221, 221, 221);
const QColor PlotWall(0, 127, 127);
const QColor SeriesColour(0, 255, 0);

// The Y range over all rows, in one pass.
std::pair<double, double> yRange(const kestro::PlotPoints& points) {
    if (points.empty()) return {0, 0};
    double lo = points[0][1], hi = points[0][1];
    for (const auto& p : points) {
        lo = std::min(lo, p[1]);
        hi = std::max(hi, p[1]);
    }
    return {lo, hi};
}

// The X range from the smallest to the largest X: infrared results run from
// high to low wavenumbers, and some files are not ordered at all.
std::pair<double, double> xRange(const kestro::PlotPoints& points) {
    if (points.empty()) return {0, 0};
    const auto [lo, hi] = std::minmax_element(points.begin(), points.end(),
                                              [](const auto& a, const auto& b) { return a[0] < b[0]; });
    return {(*lo)[0], (*hi)[0]};
}

// Ticks at 1, 2 or 5 times a power of ten, about five to ten of them over
// the range, labelled with as many decimals as the step needs.
void roundTicks(QValueAxis* axis, double lo, double hi) {
    const double span = hi - lo;
    if (!(span > 0) || !std::isfinite(span)) return;
    const double rough = span / 6;
    const double decade = std::pow(10.0, std::floor(std::log10(rough)));
    const double fraction = rough / decade;
    const double step = (fraction < 1.5 ? 1 : fraction < 3.5 ? 2 : fraction < 7.5 ? 5 : 10) * decade;
    const int decimals = std::max(0, -static_cast<int>(std::floor(std::log10(step) + 1e-9)));
    axis->setTickType(QValueAxis::TicksDynamic);
    axis->setTickAnchor(0);
    axis->setTickInterval(step);
    axis->setLabelFormat(QString("%.%1f").arg(decimals));
}

// The smallest positive Y, or 0 when there is none.
double smallestPositive(const kestro::PlotPoints& points) {
    double lo = 0;
    for (const auto& p : points)
        if (p[1] > 0 && (lo == 0 || p[1] < lo)) lo = p[1];
    return lo;
}

// No grid on any axis; the scale with its ticks and labels only when asked for.
void styleAxis(QAbstractAxis* axis, bool scaleShown) {
    axis->setGridLineVisible(false);
    axis->setMinorGridLineVisible(false);
    axis->setLabelsVisible(scaleShown);
    axis->setLineVisible(scaleShown);
}

QPointF rangeOf(const QAbstractAxis* axis) {
    if (auto* log = qobject_cast<const QLogValueAxis*>(axis)) return {log->min(), log->max()};
    auto* linear = static_cast<const QValueAxis*>(axis);
    return {linear->min(), linear->max()};
}

}  // namespace

SpecPlot::SpecPlot(QWidget* parent) : QWidget(parent, Qt::Window) {
    setObjectName("SpecPlot");
    setWindowTitle("SpecPlot");
    setAutoFillBackground(true);
    QPalette pal = palette();
    pal.setColor(QPalette::Window, FormBackground);
    setPalette(pal);

    chart_ = new QChart;
    chart_->legend()->hide();
    chart_->setBackgroundBrush(FormBackground);
    chart_->setPlotAreaBackgroundBrush(QBrush(PlotWall, Qt::SolidPattern));
    chart_->setPlotAreaBackgroundVisible(true);
    series_ = new QLineSeries;
    series_->setPen(QPen(SeriesColour, 1));
    chart_->addSeries(series_);

    view_ = new PlotView(chart_, this);
    view_->setRenderHint(QPainter::Antialiasing, false);
    view_->setPoints(&points_);
    setFocusProxy(view_);
    // Shown only when a file gave several results.
    results_ = new QComboBox(this);
    results_->setObjectName("results");
    results_->setToolTip("the results of this file");
    results_->hide();
    connect(results_, &QComboBox::activated, this,
            [this](int index) { emit resultChosen(results_->itemData(index).toString()); });
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(results_);
    layout->addWidget(view_);
    createMenu();
    connect(view_, &PlotView::fullViewRequested, this, &SpecPlot::showFullView);
    connect(view_, &PlotView::menuRequested, this, [this](QPoint at) {
        logAction_->setChecked(logarithmic_);
        menu_->popup(at);
    });
}

void SpecPlot::createMenu() {
    menu_ = new QMenu(this);
    menu_->setObjectName("plotMenu");
    QAction* save = menu_->addAction("Save image...", this, &SpecPlot::saveImageAs);
    save->setObjectName("saveImage");
    QAction* copy = menu_->addAction("Copy image", this, [this] { QGuiApplication::clipboard()->setPixmap(image()); });
    copy->setObjectName("copyImage");
    menu_->addSeparator();
    axesAction_ = menu_->addAction("Show axes", this, &SpecPlot::showAxes);
    axesAction_->setObjectName("showAxes");
    axesAction_->setCheckable(true);
    logAction_ = menu_->addAction("Logarithmic scale");
    logAction_->setObjectName("logarithmicScale");
    logAction_->setCheckable(true);
    connect(logAction_, &QAction::triggered, this, [this](bool on) {
        applyScale(on);
        emit logarithmicChosen(on);
    });
    askImagePath = [this](const QString& suggested) {
        return QFileDialog::getSaveFileName(this, "Save image", suggested, "PNG image (*.png)");
    };
}

void SpecPlot::plot(const kestro::PlotPoints& points, const QString& fileName, const QSize& mainWindowSize) {
    resize(mainWindowSize * 1.05);
    replacePoints(points, fileName);
    setResults({fileName}, 0);
}

void SpecPlot::replacePoints(const kestro::PlotPoints& points, const QString& fileName) {
    chart_->setTitle(fileName);
    points_ = points;
}

void SpecPlot::setResults(const QStringList& fileNames, int shown) {
    results_->clear();
    for (const QString& name : fileNames) results_->addItem(QFileInfo(name).fileName(), name);
    results_->setCurrentIndex(shown);
    results_->setVisible(fileNames.size() > 1);
}

void SpecPlot::fillSeries(bool logarithmic) {
    // A logarithmic axis cannot show zero or negative counts: they are drawn
    // on the axis floor, one decade below the smallest positive value.
    const double positive = smallestPositive(points_);
    const double floorValue = positive > 0 ? std::pow(10.0, std::floor(std::log10(positive)) - 1) : 0.1;
    QList<QPointF> shown;
    shown.reserve(static_cast<qsizetype>(points_.size()));
    for (const auto& p : points_) shown.append(QPointF(p[0], logarithmic && p[1] <= 0 ? floorValue : p[1]));
    series_->replace(shown);
}

void SpecPlot::applyScale(bool logarithmic) {
    logarithmic_ = logarithmic;
    fillSeries(logarithmic);
    // A removed axis's labels stay in the scene until the event loop runs
    // again, which during a run is only at its end: over the next plot's
    // labels, unless hidden before the axis goes.
    for (QAbstractAxis* axis : chart_->axes()) {
        axis->setLabelsVisible(false);
        chart_->removeAxis(axis);
        delete axis;
    }
    auto [lo, hi] = yRange(points_);
    auto* xAxis = new QValueAxis;
    if (!points_.empty()) {
        const auto [left, right] = xRange(points_);
        xAxis->setRange(left, right > left ? right : left + 1);
    }
    QAbstractAxis* yAxis;
    if (logarithmic) {
        // Whole decades around the positive values (ln x / ln 10).
        const double positive = smallestPositive(points_);
        const double low = positive > 0 ? std::floor(std::log(positive) / std::log(10.0)) - (lo <= 0 ? 1 : 0) : -1;
        const double high = hi > 0 ? std::ceil(std::log(hi) / std::log(10.0)) : 0;
        yMin_ = std::pow(10.0, low);
        yMax_ = std::pow(10.0, std::max(high, low + 1));
        auto* log = new QLogValueAxis;
        log->setBase(10);
        log->setLabelFormat("%g");
        log->setRange(yMin_, yMax_);
        yAxis = log;
    } else {
        yMin_ = lo;
        yMax_ = hi;
        auto* lin = new QValueAxis;
        // A flat result has a zero-height range; the axis still needs room to draw.
        lin->setRange(lo, hi > lo ? hi : lo + 1);
        yAxis = lin;
    }
    for (QAbstractAxis* axis : {static_cast<QAbstractAxis*>(xAxis), yAxis}) styleAxis(axis, axesShown_);
    chart_->addAxis(xAxis, Qt::AlignBottom);
    chart_->addAxis(yAxis, Qt::AlignLeft);
    series_->attachAxis(xAxis);
    series_->attachAxis(yAxis);
    // Every view change (zoom, pan, Home) gets round ticks and a readout
    // for the point now under the cursor.
    for (QAbstractAxis* axis : {static_cast<QAbstractAxis*>(xAxis), yAxis}) {
        if (auto* linear = qobject_cast<QValueAxis*>(axis)) {
            roundTicks(linear, linear->min(), linear->max());
            connect(linear, &QValueAxis::rangeChanged, this,
                    [linear](double lo, double hi) { roundTicks(linear, lo, hi); });
            connect(linear, &QValueAxis::rangeChanged, view_, &PlotView::refreshReadout, Qt::QueuedConnection);
        } else {
            connect(static_cast<QLogValueAxis*>(axis), &QLogValueAxis::rangeChanged, view_,
                    &PlotView::refreshReadout, Qt::QueuedConnection);
        }
    }
    view_->refreshReadout();
    // The view as first drawn is the full view that Home returns to.
    xFull_ = rangeOf(xAxis);
    yFull_ = rangeOf(yAxis);
}

void SpecPlot::showFullView() {
    const QList<QAbstractAxis*> x = chart_->axes(Qt::Horizontal), y = chart_->axes(Qt::Vertical);
    if (x.isEmpty() || y.isEmpty()) return;
    x.first()->setRange(xFull_.x(), xFull_.y());
    y.first()->setRange(yFull_.x(), yFull_.y());
}

void SpecPlot::showAxes(bool shown) {
    axesShown_ = shown;
    axesAction_->setChecked(shown);
    for (QAbstractAxis* axis : chart_->axes()) styleAxis(axis, shown);
}

QPixmap SpecPlot::image() const {
    const bool readoutShown = view_->readout()->isVisible();
    view_->hideReadout();
    QPixmap picture = view_->grab();
    if (readoutShown) view_->readout()->show();
    return picture;
}

bool SpecPlot::saveImage(const QString& path) const { return image().save(path, "PNG"); }

void SpecPlot::saveImageAs() {
    // Beside the plotted result, under its name.
    const QFileInfo result(chart_->title());
    QString path = askImagePath(result.dir().filePath(result.completeBaseName() + ".png"));
    if (path.isEmpty()) return;
    if (QFileInfo(path).suffix().isEmpty()) path += ".png";
    if (!saveImage(path)) QMessageBox::warning(this, "Save image", "The image could not be written to " + path);
}
