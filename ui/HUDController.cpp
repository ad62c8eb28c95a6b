#include "ui/HUDController.h"

#include "session/SayvoCoordinator.h"
#include "ui/HUDView.h"
#include "ui/WaveformView.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <QVBoxLayout>
#include <QWidget>

#include <cmath>

namespace sayvo {

QScreen *HUDController::screenUnderPointer()
{
    if (QScreen *screen = QGuiApplication::screenAt(QCursor::pos())) {
        return screen;
    }
    return QGuiApplication::primaryScreen();
}

HUDController::HUDController(SayvoCoordinator &coordinator, QObject *parent)
    : QObject(parent), m_screen(&HUDController::screenUnderPointer)
{
    m_hideTimer.setSingleShot(true);
    m_hideTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_hideTimer, &QTimer::timeout, this, [this] {
        if (m_panel) {
            m_panel->hide();
        }
    });
    auto rerender
        = [this, &coordinator] { render(coordinator.state(), coordinator.isCaptureLive()); };
    connect(&coordinator, &SayvoCoordinator::stateChanged, this, rerender);
    connect(&coordinator, &SayvoCoordinator::isCaptureLiveChanged, this, rerender);
}

HUDController::~HUDController() = default;

bool HUDController::isShown() const
{
    return m_panel && m_panel->isVisible();
}

void HUDController::createPanel()
{
    // A tool window that X11 window managers leave alone: no frame, no focus, no clicks,
    // always above the application the user is dictating into.
    m_panel = std::make_unique<QWidget>(nullptr,
        Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus
            | Qt::WindowTransparentForInput | Qt::X11BypassWindowManagerHint
            | Qt::NoDropShadowWindowHint);
    m_panel->setObjectName(QStringLiteral("SayvoHUD"));
    m_panel->setWindowTitle(QStringLiteral("Sayvo"));
    m_panel->setAttribute(Qt::WA_TranslucentBackground);
    m_panel->setAttribute(Qt::WA_ShowWithoutActivating);
    m_panel->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_panel->setFocusPolicy(Qt::NoFocus);
    m_panel->resize(kWidth, kHeight);
    auto *layout = new QVBoxLayout(m_panel.get());
    layout->setContentsMargins(0, 0, 0, 0);
    m_view = new HUDView(m_panel.get());
    layout->addWidget(m_view);
}

void HUDController::render(const AppState &state, bool captureLive)
{
    m_hideTimer.stop();
    if (state.is<AppState::Idle>()) {
        if (m_panel) {
            m_panel->hide();
        }
        return;
    }
    if (!m_panel) {
        createPanel();
    }
    m_view->setState(state, captureLive);
    positionNearCaretOrFixed();
    m_panel->show();
    m_panel->raise();
    if (state.is<AppState::Success>()) {
        scheduleHide(kSuccessHideSeconds);
    } else if (state.is<AppState::Error>() || state.is<AppState::EmptyTranscript>()) {
        scheduleHide(kErrorHideSeconds);
    }
}

void HUDController::scheduleHide(double seconds)
{
    m_hideTimer.start(std::chrono::milliseconds(std::llround(seconds * 1000.0)));
}

void HUDController::positionNearCaretOrFixed()
{
    QScreen *screen = m_screen();
    if (screen == nullptr || !m_panel) {
        return; // without a screen the panel keeps its place
    }
    const QRect visible = screen->availableGeometry();
    // Qt's y grows downwards: "80 points above the bottom" is bottom - 80 - height.
    const QRect frame(visible.x() + visible.width() / 2 - kWidth / 2,
        visible.y() + visible.height() - kBottomOffset - kHeight, kWidth, kHeight);
    if (m_panel->geometry() != frame) {
        m_panel->setGeometry(frame);
    }
}

double HUDController::barLevel(float rms)
{
    return std::clamp(std::sqrt(std::max(0.0f, rms)) * 1.6, 0.0, 1.0);
}

void HUDController::postLevel(float rms)
{
    m_latestLevel.store(rms);
    if (m_levelPending.exchange(true)) {
        return;
    }
    QMetaObject::invokeMethod(this, &HUDController::applyLatestLevel, Qt::QueuedConnection);
}

void HUDController::applyLatestLevel()
{
    m_levelPending.store(false);
    if (m_view != nullptr && isShown()
        && m_view->currentIndicator() == HUDView::Indicator::waveform) {
        m_view->waveform()->pushLevel(barLevel(m_latestLevel.load()));
    }
}

} // namespace sayvo
