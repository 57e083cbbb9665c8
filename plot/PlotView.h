#pragma once
// The chart view of the plot window, with the reading aids: the mouse wheel
// zooms the X axis around the cursor, a dragged rectangle zooms into it, the
// right button or the arrow keys pan, a double-click or Home asks for the
// full view, and a readout follows the mouse with the values of the nearest
// point. None of it shows until the mouse or the keys are used.
#include <QChartView>

#include "core/Host.h"

class QGraphicsEllipseItem;
class QLabel;
class QRubberBand;

class PlotView : public QChartView {
    Q_OBJECT
public:
    PlotView(QChart* chart, QWidget* parent);

    // The points the readout reports: the values as read, whatever is drawn.
    void setPoints(const kestro::PlotPoints* points) { points_ = points; }
    // Zooms the X axis by `factor` (below 1 zooms in), keeping the value
    // under `viewPos` where it is.
    void zoomAround(QPoint viewPos, double factor);
    // Shows the readout for the point nearest `viewPos` in X.
    void showReadout(QPoint viewPos);
    void hideReadout();
    // After the view changed under a still mouse: the readout, if shown,
    // names the point now nearest the cursor.
    void refreshReadout();
    QLabel* readout() const { return readout_; }

signals:
    void fullViewRequested();
    void menuRequested(QPoint globalPos);

protected:
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    QPointF chartPoint(QPoint viewPos) const;
    void zoomToBand();

    const kestro::PlotPoints* points_ = nullptr;
    QLabel* readout_;
    QGraphicsEllipseItem* marker_;
    QRubberBand* band_;
    QPoint bandStart_;
    QPoint panFrom_;
    QPoint readoutAt_;
    bool panned_ = false;
};
