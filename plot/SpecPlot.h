#pragma once
// The spectrum plot: one line chart of a converted result, on a linear or a
// base-10 logarithmic Y scale. Zoom, pan, the readout and the context menu
// ("Save image...", "Copy image", "Show axes", "Logarithmic scale") are
// additions; until they are used the plot looks as it always has.
#include <QWidget>
#include <functional>

#include "core/Host.h"

class QAction;
class QChart;
class QComboBox;
class QLineSeries;
class QMenu;
class PlotView;

class SpecPlot : public QWidget {
    Q_OBJECT
public:
    explicit SpecPlot(QWidget* parent = nullptr);

    // Takes n rows of X and Y and the file name as title, sized from the
    // main window; the scale step that follows draws them.
    void plot(const kestro::PlotPoints& points, const QString& fileName, const QSize& mainWindowSize);
    // Another result in the same window, at its present size.
    void replacePoints(const kestro::PlotPoints& points, const QString& fileName);
    // All the results of the file just plotted (full paths), `shown` the one
    // drawn; with two or more a selector above the chart steps through them.
    void setResults(const QStringList& fileNames, int shown);
    // The scale step: the series on a linear axis over the Y range, or on a
    // logarithmic one in whole decades.
    void applyScale(bool logarithmic);

    // Back to the whole result, as the scale step showed it.
    void showFullView();
    // The axes' scales with ticks and labels (off until chosen).
    void showAxes(bool shown);
    // The plot as a picture (the readout left out); PNG to a file.
    QPixmap image() const;
    bool saveImage(const QString& path) const;

    // Asks where "Save image..." writes; a file dialog unless a test sets it.
    std::function<QString(const QString& suggested)> askImagePath;

    // What is drawn, for tests.
    QChart* chart() const { return chart_; }
    QLineSeries* series() const { return series_; }
    bool logarithmic() const { return logarithmic_; }
    double yMin() const { return yMin_; }
    double yMax() const { return yMax_; }
    PlotView* view() const { return view_; }
    QMenu* menu() const { return menu_; }
    QComboBox* results() const { return results_; }

signals:
    // "Logarithmic scale" was chosen from the menu; the main window's box follows.
    void logarithmicChosen(bool logarithmic);
    // Another of the results was chosen in the selector.
    void resultChosen(const QString& fileName);

private:
    void fillSeries(bool logarithmic);
    void createMenu();
    void saveImageAs();

    QChart* chart_;
    PlotView* view_;
    QLineSeries* series_;
    QMenu* menu_;
    QComboBox* results_;
    QAction* axesAction_;
    QAction* logAction_;
    bool axesShown_ = false;
    QPointF xFull_;  // the X range the scale step shows, empty for no points
    QPointF yFull_;  // the Y range as the axis shows it
    kestro::PlotPoints points_;
    bool logarithmic_ = false;
    double yMin_ = 0;
    double yMax_ = 0;
};
