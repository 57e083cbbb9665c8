#include "plot/PlotView.h"

#include <QApplication>
#include <QChart>
#include <QGraphicsEllipseItem>
#include <QLabel>
#include <QLineSeries>
#include <QMouseEvent>
#include <QRubberBand>
#include <algorithm>
#include <cmath>

namespace {

// One wheel notch narrows the X range to this fraction.
constexpr double WheelZoom = 0.8;
// An arrow key pans by this fraction of the plot area.
constexpr double KeyPan = 0.1;
// A rectangle smaller than this on either side is taken for a click.
constexpr int SmallestBand = 4;

QString readoutNumber(double v) { return QString::number(v, 'g', 8); }

}  // namespace

PlotView::PlotView(QChart* chart, QWidget* parent) : QChartView(chart, parent) {
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    readout_ = new QLabel(viewport());
    readout_->setObjectName("readout");
    readout_->setStyleSheet("background: rgba(255, 255, 255, 220); color: black; padding: 2px 4px;");
    readout_->setAttribute(Qt::WA_TransparentForMouseEvents);
    readout_->hide();
    marker_ = new QGraphicsEllipseItem(-3, -3, 6, 6, chart);
    marker_->setPen(QPen(Qt::white, 1));
    marker_->setZValue(10);
    marker_->hide();
    band_ = new QRubberBand(QRubberBand::Rectangle, viewport());
}

QPointF PlotView::chartPoint(QPoint viewPos) const { return chart()->mapFromScene(mapToScene(viewPos)); }

void PlotView::zoomAround(QPoint viewPos, double factor) {
    const QRectF area = chart()->plotArea();
    const double x = std::clamp(chartPoint(viewPos).x(), area.left(), area.right());
    chart()->zoomIn(QRectF(x - (x - area.left()) * factor, area.top(), area.width() * factor, area.height()));
}

void PlotView::showReadout(QPoint viewPos) {
    if (!points_ || points_->empty() || chart()->series().isEmpty()) return hideReadout();
    QAbstractSeries* series = chart()->series().first();
    const double x = chart()->mapToValue(chartPoint(viewPos), series).x();
    const auto nearest = std::min_element(points_->begin(), points_->end(), [x](const auto& a, const auto& b) {
        return std::abs(a[0] - x) < std::abs(b[0] - x);
    });
    readoutAt_ = viewPos;
    const auto& p = *nearest;
    readout_->setText("X = " + readoutNumber(p[0]) + "   Y = " + readoutNumber(p[1]));
    readout_->adjustSize();
    // Beside the cursor, kept inside the view.
    QPoint at = viewPos + QPoint(14, 14);
    at.setX(std::min(at.x(), viewport()->width() - readout_->width()));
    at.setY(std::min(at.y(), viewport()->height() - readout_->height()));
    readout_->move(at);
    readout_->show();
    // The marker sits on the point as drawn, which on a log scale may be the floor.
    const auto* xy = static_cast<QXYSeries*>(series);
    const int index = static_cast<int>(nearest - points_->begin());
    if (index >= xy->count()) return marker_->hide();
    const auto drawn = xy->at(index);
    marker_->setPos(chart()->mapToPosition(drawn, series));
    marker_->setVisible(chart()->plotArea().adjusted(-1, -1, 1, 1).contains(marker_->pos()));
}

void PlotView::refreshReadout() {
    if (readout_->isVisible()) showReadout(readoutAt_);
}

void PlotView::hideReadout() {
    readout_->hide();
    marker_->hide();
}

void PlotView::wheelEvent(QWheelEvent* event) {
    const double notches = event->angleDelta().y() / 120.0;
    if (notches != 0) zoomAround(event->position().toPoint(), std::pow(WheelZoom, notches));
    showReadout(event->position().toPoint());
    event->accept();
}

void PlotView::mousePressEvent(QMouseEvent* event) {
    const QPoint pos = event->position().toPoint();
    if (event->button() == Qt::LeftButton) {
        bandStart_ = pos;
        band_->setGeometry(QRect(pos, QSize()));
        band_->show();
    } else if (event->button() == Qt::RightButton) {
        panFrom_ = pos;
        panned_ = false;
    }
    event->accept();
}

void PlotView::mouseMoveEvent(QMouseEvent* event) {
    const QPoint pos = event->position().toPoint();
    if (event->buttons() & Qt::LeftButton) {
        band_->setGeometry(QRect(bandStart_, pos).normalized());
    } else if (event->buttons() & Qt::RightButton) {
        const QPoint moved = pos - panFrom_;
        if (panned_ || moved.manhattanLength() >= QApplication::startDragDistance()) {
            chart()->scroll(-moved.x(), moved.y());
            panFrom_ = pos;
            panned_ = true;
        }
    }
    showReadout(pos);
    event->accept();
}

void PlotView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && band_->isVisible()) {
        band_->hide();
        zoomToBand();
    } else if (event->button() == Qt::RightButton && !panned_) {
        emit menuRequested(event->globalPosition().toPoint());
    }
    event->accept();
}

void PlotView::zoomToBand() {
    const QRect band = band_->geometry();
    if (band.width() < SmallestBand || band.height() < SmallestBand) return;
    const QRectF inChart(chartPoint(band.topLeft()), chartPoint(band.bottomRight()));
    const QRectF zoomed = inChart.intersected(chart()->plotArea());
    if (!zoomed.isEmpty()) chart()->zoomIn(zoomed);
}

void PlotView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) emit fullViewRequested();
    event->accept();
}

void PlotView::keyPressEvent(QKeyEvent* event) {
    const QRectF area = chart()->plotArea();
    const double dx = area.width() * KeyPan, dy = area.height() * KeyPan;
    switch (event->key()) {
    case Qt::Key_Left: chart()->scroll(-dx, 0); break;
    case Qt::Key_Right: chart()->scroll(dx, 0); break;
    case Qt::Key_Up: chart()->scroll(0, dy); break;
    case Qt::Key_Down: chart()->scroll(0, -dy); break;
    case Qt::Key_Home: emit fullViewRequested(); break;
    default: QChartView::keyPressEvent(event); return;
    }
    event->accept();
}

// The mouse's menu opens on the right button's release (a drag pans
// instead); the keyboard's opens at once.
void PlotView::contextMenuEvent(QContextMenuEvent* event) {
    if (event->reason() != QContextMenuEvent::Mouse) emit menuRequested(event->globalPos());
    event->accept();
}

void PlotView::leaveEvent(QEvent* event) {
    hideReadout();
    QChartView::leaveEvent(event);
}
