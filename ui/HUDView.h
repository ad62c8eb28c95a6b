#pragma once

#include "session/AppState.h"
#include "ui/SymbolIconSet.h"

#include <QWidget>

class QLabel;
class QPropertyAnimation;
class QStackedWidget;

namespace sayvo {

class BusyIndicator;
class WaveformView;

// Draws one HUD state: a dark pill with an indicator (level bars, spinner or symbol) and a
// one-line label.
class HUDView : public QWidget
{
    Q_OBJECT

public:
    enum class Indicator {
        none,
        waveform,
        spinner,
        symbol,
    };

    explicit HUDView(QWidget *parent = nullptr);

    void setState(const AppState &state, bool captureLive);

    // What the state shows, before any eliding to fit.
    static QString label(const AppState &state, bool captureLive);
    static Indicator indicator(const AppState &state);
    // The symbol beside the label for success, error and empty states; "" otherwise.
    static QString symbolName(const AppState &state);
    static QColor accentColor(const AppState &state);

    QString labelText() const { return m_fullLabel; }
    Indicator currentIndicator() const { return m_indicator; }
    WaveformView *waveform() const { return m_waveform; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void updateElidedLabel();

    QStackedWidget *m_indicators = nullptr;
    WaveformView *m_waveform = nullptr;
    BusyIndicator *m_spinner = nullptr;
    QLabel *m_symbol = nullptr;
    SymbolIconSet m_symbolIcons;
    QLabel *m_label = nullptr;
    QString m_fullLabel;
    Indicator m_indicator = Indicator::none;
    bool m_elideLeft = false;
};

// A small indeterminate spinner that only animates while shown.
class BusyIndicator : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(int angle READ angle WRITE setAngle)

public:
    explicit BusyIndicator(QWidget *parent = nullptr);
    ~BusyIndicator() override;

    void setColor(const QColor &color);
    int angle() const { return m_angle; }
    void setAngle(int angle);
    bool isSpinning() const;

protected:
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    QColor m_color = Qt::white;
    int m_angle = 0;
    QPropertyAnimation *m_spin = nullptr;
};

} // namespace sayvo
