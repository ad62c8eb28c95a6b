#include "ui/WaveformView.h"

#include <QPainter>
#include <QPropertyAnimation>
#include <QSequentialAnimationGroup>

namespace sayvo {

WaveformView::WaveformView(QWidget *parent) : QWidget(parent), m_levels(kBarCount, 0.0)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFixedSize(sizeHint());

    auto *group = new QSequentialAnimationGroup();
    for (const auto &[from, to] : {std::pair {0.55, 0.2}, std::pair {0.2, 0.55}}) {
        auto *fade = new QPropertyAnimation(this, "rowOpacity", group);
        fade->setStartValue(from);
        fade->setEndValue(to);
        fade->setDuration(700);
        fade->setEasingCurve(QEasingCurve::InOutQuad);
        group->addAnimation(fade);
    }
    group->setLoopCount(-1);
    m_pulse.reset(group);
}

WaveformView::~WaveformView() = default;

QSize WaveformView::sizeHint() const
{
    return {kBarCount * kBarWidth + (kBarCount - 1) * kBarSpacing, kHeight};
}

void WaveformView::setColor(const QColor &color)
{
    m_color = color;
    update();
}

void WaveformView::setPulsing(bool pulsing)
{
    if (m_pulsing == pulsing) {
        return;
    }
    m_pulsing = pulsing;
    updateAnimation();
}

void WaveformView::updateAnimation()
{
    // The animation only runs while someone can see it: a hidden HUD costs no timer.
    if (m_pulsing && isVisible()) {
        if (m_pulse->state() != QAbstractAnimation::Running) {
            m_pulse->start();
        }
        return;
    }
    m_pulse->stop();
    setRowOpacity(m_pulsing ? 0.55 : 1.0);
}

void WaveformView::setRowOpacity(qreal opacity)
{
    m_rowOpacity = opacity;
    update();
}

void WaveformView::pushLevel(double level)
{
    m_levels.erase(m_levels.begin());
    m_levels.push_back(std::clamp(level, 0.0, 1.0));
    update();
}

void WaveformView::resetLevels()
{
    std::fill(m_levels.begin(), m_levels.end(), 0.0);
    update();
}

void WaveformView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    updateAnimation();
}

void WaveformView::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    updateAnimation();
}

void WaveformView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setOpacity(m_rowOpacity);
    painter.setPen(Qt::NoPen);
    painter.setBrush(m_color);
    for (int i = 0; i < static_cast<int>(m_levels.size()); ++i) {
        const double h = barHeight(m_levels[static_cast<size_t>(i)]);
        const QRectF bar(i * (kBarWidth + kBarSpacing), (kHeight - h) / 2.0, kBarWidth, h);
        painter.drawRoundedRect(bar, 1.0, 1.0);
    }
}

} // namespace sayvo
