#pragma once

#include "session/AppState.h"

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <atomic>
#include <functional>
#include <memory>

class QScreen;
class QWidget;

namespace sayvo {

class HUDView;
class SayvoCoordinator;

// Owns the floating pill near the bottom of the screen that shows what the current
// utterance is doing. The panel never takes focus or clicks, so typing stays in the target
// application. Main thread only, except postLevel().
class HUDController : public QObject
{
    Q_OBJECT

public:
    static constexpr int kWidth = 260;
    static constexpr int kHeight = 44;
    static constexpr int kBottomOffset = 80;
    static constexpr double kSuccessHideSeconds = 1.2;
    static constexpr double kErrorHideSeconds = 2.0;

    using ScreenProvider = std::function<QScreen *()>;

    // The panel sits on the screen `screen` returns: unless told otherwise, the one the user
    // is working on, under the pointer.
    explicit HUDController(SayvoCoordinator &coordinator, QObject *parent = nullptr);
    // The screen under the mouse pointer, or the primary screen when the pointer is on none.
    static QScreen *screenUnderPointer();
    void setScreenProvider(ScreenProvider screen) { m_screen = std::move(screen); }
    ~HUDController() override;

    void render(const AppState &state, bool captureLive);
    void scheduleHide(double seconds);
    void positionNearCaretOrFixed();

    // A microphone level (RMS of the newest buffer) from any thread; the bars take the
    // newest one at most once per event-loop turn.
    void postLevel(float rms);

    QWidget *panel() const { return m_panel.get(); }
    HUDView *view() const { return m_view; }
    bool isShown() const;
    bool isHidePending() const { return m_hideTimer.isActive(); }

    // How a level maps to a bar: square-root loudness, so speech fills the bars.
    static double barLevel(float rms);

private:
    void createPanel();
    void applyLatestLevel();

    std::unique_ptr<QWidget> m_panel;
    HUDView *m_view = nullptr;
    QTimer m_hideTimer;
    ScreenProvider m_screen;
    std::atomic<float> m_latestLevel {0.0f};
    std::atomic<bool> m_levelPending {false};
};

} // namespace sayvo
