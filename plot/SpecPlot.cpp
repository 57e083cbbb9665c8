#include "plot/SpecPlot.h"

#include <QChart>
#include <QChartView>
#include <QLineSeries>
#include <QLogValueAxis>
#include <QValueAxis>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

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

// The smallest positive Y, or 0 when there is none.
double smallestPositive(const kestro::PlotPoints& points) {
    double lo = 0;
    for (const auto& p : points)
        if (p[1] > 0 && (lo == 0 || p[1] < lo)) lo = p[1];
    return lo;
}

void hideGridAndTicks(QAbstractAxis* axis) {
    axis->setGridLineVisible(false);
    axis->setMinorGridLineVisible(false);
    axis->setLabelsVisible(false);
    axis->setLineVisible(false);
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

    view_ = new QChartView(chart_, this);
    view_->setRenderHint(QPainter::Antialiasing, false);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(view_);
}

void SpecPlot::plot(const kestro::PlotPoints& points, const QString& fileName, const QSize& mainWindowSize) {
    resize(mainWindowSize * 1.05);
    chart_->setTitle(fileName);
    points_ = points;
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
    for (QAbstractAxis* axis : chart_->axes()) {
        chart_->removeAxis(axis);
        delete axis;
    }
    auto [lo, hi] = yRange(points_);
    auto* xAxis = new QValueAxis;
    if (!points_.empty()) xAxis->setRange(points_.front()[0], points_.back()[0]);
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
    for (QAbstractAxis* axis : {static_cast<QAbstractAxis*>(xAxis), yAxis}) hideGridAndTicks(axis);
    chart_->addAxis(xAxis, Qt::AlignBottom);
    chart_->addAxis(yAxis, Qt::AlignLeft);
    series_->attachAxis(xAxis);
    series_->attachAxis(yAxis);
}
