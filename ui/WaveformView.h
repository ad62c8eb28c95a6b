#pragma once

#include <QColor>
#include <QWidget>

#include <memory>
#include <vector>

class QAbstractAnimation;

namespace sayvo {

// The small level bars of the HUD: one rounded bar per level (0 to 1), 3 points wide and
// level × 12 + 4 points high, 2 points apart. While pulsing the row fades between 0.55 and
// 0.2 opacity, to show that the microphone is still opening.
class WaveformView : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(qreal rowOpacity READ rowOpacity WRITE setRowOpacity)

public:
    static constexpr int kBarCount = 9;
    static constexpr int kBarWidth = 3;
    static constexpr int kBarSpacing = 2;
    static constexpr int kHeight = 16;

    explicit WaveformView(QWidget *parent = nullptr);
    ~WaveformView() override;

    void setColor(const QColor &color);
    void setPulsing(bool pulsing);
    bool isPulsing() const { return m_pulsing; }

    // Shifts a new level in on the right; the oldest leaves on the left.
    void pushLevel(double level);
    void resetLevels();
    const std::vector<double> &levels() const { return m_levels; }

    static double barHeight(double level) { return level * 12.0 + 4.0; }

    qreal rowOpacity() const { return m_rowOpacity; }
    void setRowOpacity(qreal opacity);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    void updateAnimation();

    QColor m_color = Qt::white;
    bool m_pulsing = false;
    std::vector<double> m_levels;
    qreal m_rowOpacity = 1.0;
    std::unique_ptr<QAbstractAnimation> m_pulse;
};

} // namespace sayvo
