#pragma once
// The spectrum plot: one line chart of a converted result, on a linear or a
// base-10 logarithmic Y scale.
#include <QWidget>

#include "core/Host.h"

class QChart;
class QChartView;
class QLineSeries;

class SpecPlot : public QWidget {
    Q_OBJECT
public:
    explicit SpecPlot(QWidget* parent = nullptr);

    // Takes n rows of X and Y and the file name as title, sized from the
    // main window; the scale step that follows draws them.
    void plot(const kestro::PlotPoints& points, const QString& fileName, const QSize& mainWindowSize);
    // The scale step: the series on a linear axis over the Y range, or on a
    // logarithmic one in whole decades.
    void applyScale(bool logarithmic);

    // What is drawn, for tests.
    QChart* chart() const { return chart_; }
    QLineSeries* series() const { return series_; }
    bool logarithmic() const { return logarithmic_; }
    double yMin() const { return yMin_; }
    double yMax() const { return yMax_; }

private:
    void fillSeries(bool logarithmic);

    QChart* chart_;
    QChartView* view_;
    QLineSeries* series_;
    kestro::PlotPoints points_;
    bool logarithmic_ = false;
    double yMin_ = 0;
    double yMax_ = 0;
};
