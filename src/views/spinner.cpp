#include "views/spinner.h"

#include "views/view_factories.h"

#include <QPainter>

#include <chrono>

using namespace std::chrono_literals;

namespace {

constexpr int kSide = 18;
constexpr int kSpokes = 12;
constexpr auto kStepTime = 80ms;

} // namespace

Spinner::Spinner(QWidget *parent)
    : QWidget(parent)
{
    setFixedSize(Scaled(kSide), Scaled(kSide));
    m_timer.setInterval(kStepTime);
    connect(&m_timer, &QTimer::timeout, this, &Spinner::turn);
}

void Spinner::setAnimating(bool animating)
{
    if (animating == isAnimating())
        return;
    if (animating)
        m_timer.start();
    else
        m_timer.stop();
    update();
}

void Spinner::turn()
{
    m_step = (m_step + 1) % kSpokes;
    update();
}

void Spinner::paintEvent(QPaintEvent *)
{
    if (!isAnimating())
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(rect().toRectF().center());
    const qreal radius = width() / 2.0;
    QColor color = palette().color(QPalette::WindowText);
    for (int spoke = 0; spoke < kSpokes; ++spoke) {
        color.setAlphaF(static_cast<float>((spoke + 1.0) / kSpokes));
        painter.setPen(QPen(color, radius / 5, Qt::SolidLine, Qt::RoundCap));
        painter.save();
        painter.rotate(360.0 * (m_step + spoke) / kSpokes);
        painter.drawLine(QPointF(0, -radius * 0.5), QPointF(0, -radius * 0.85));
        painter.restore();
    }
}
