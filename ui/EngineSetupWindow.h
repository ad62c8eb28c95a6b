#pragma once

#include "runtime/EngineState.h"

#include <QList>
#include <QWidget>

class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QToolButton;
class QVBoxLayout;

namespace sayvo {

class EngineSupervisor;

// The "Sayvo Engine" window: the supervisor's state as a status line and a body, the one action
// that fits the state ("Set Up Now", "Retry", "Try Again"), the set-up checklist while the
// runtime is provisioned, and the set-up log behind a disclosure. Follows the supervisor live;
// created once and then only hidden and shown. Main thread only; the supervisor must outlive
// it.
class EngineSetupWindow : public QWidget
{
    Q_OBJECT

public:
    explicit EngineSetupWindow(EngineSupervisor &supervisor, QWidget *parent = nullptr);

    // The set-up log keeps this many lines on screen; older ones scroll away for good.
    static constexpr int kMaxLogLines = 2000;

    static QString statusLine(const EngineState &state);
    static QString emptyLogText();

    bool isLogShown() const { return m_showLog; }
    void setLogShown(bool shown);

private:
    void refreshState();
    void refreshSteps();
    void refreshLog();
    void appendLog(const QString &text);
    void performAction();
    void fitHeightToContent();

    EngineSupervisor &m_supervisor;
    bool m_showLog = false;
    bool m_showsEmptyLogText = true;

    QLabel *m_status = nullptr;
    QLabel *m_symbol = nullptr;
    QLabel *m_message = nullptr;
    QLabel *m_detail = nullptr;
    QPushButton *m_action = nullptr;
    QProgressBar *m_progress = nullptr;
    QWidget *m_stepsBox = nullptr;
    QVBoxLayout *m_steps = nullptr;
    QLabel *m_provisioningNote = nullptr;
    QToolButton *m_logToggle = nullptr;
    QPlainTextEdit *m_log = nullptr;
};

} // namespace sayvo
