#include "ui/EngineSetupWindow.h"

#include "runtime/EngineSupervisor.h"
#include "ui/PlatformTexts.h"
#include "ui/SymbolIcon.h"
#include "ui/WindowStyle.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QTextCursor>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace sayvo {

namespace {

template <typename... Ts> struct Overloaded : Ts...
{
    using Ts::operator()...;
};
template <typename... Ts> Overloaded(Ts...) -> Overloaded<Ts...>;

// The turning arc beside the step that is running.
class StepSpinner : public QWidget
{
public:
    explicit StepSpinner(QWidget *parent) : QWidget(parent), m_timer(new QTimer(this))
    {
        m_timer->setObjectName(QStringLiteral("spinnerTimer"));
        m_timer->setInterval(80);
        connect(m_timer, &QTimer::timeout, this, [this] {
            m_angle = (m_angle + 30) % 360;
            update();
        });
    }

protected:
    // Turns only while someone can see it.
    void showEvent(QShowEvent *) override { m_timer->start(); }
    void hideEvent(QHideEvent *) override { m_timer->stop(); }

    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF box = QRectF(rect()).adjusted(2, 2, -2, -2);
        painter.setPen(QPen(QColor(0xd2, 0xd2, 0xd7), 2));
        painter.drawEllipse(box);
        painter.setPen(QPen(SymbolIcon::accentColor(), 2, Qt::SolidLine, Qt::RoundCap));
        painter.drawArc(box, -m_angle * 16, 100 * 16);
    }

private:
    QTimer *m_timer; // child
    int m_angle = 0;
};

QLabel *wrapping(QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

} // namespace

EngineSetupWindow::EngineSetupWindow(EngineSupervisor &supervisor, QWidget *parent)
    : QWidget(parent, Qt::Window), m_supervisor(supervisor)
{
    setWindowTitle(QStringLiteral("Sayvo Engine"));
    setWindowFlag(Qt::WindowMaximizeButtonHint, false);
    setStyleSheet(WindowStyle::sheet());
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 20, 24, 20);
    layout->setSpacing(14);

    auto *header = new QHBoxLayout;
    header->setSpacing(12);
    auto *icon = new QLabel(this);
    icon->setPixmap(
        SymbolIcon::pixmap(QStringLiteral("waveform.circle.fill"), 40, SymbolIcon::accentColor()));
    header->addWidget(icon);
    auto *titles = new QVBoxLayout;
    titles->setSpacing(2);
    auto *title = new QLabel(QStringLiteral("Sayvo Engine"), this);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.45);
    titleFont.setBold(true);
    title->setFont(titleFont);
    titles->addWidget(title);
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("statusLine"));
    WindowStyle::makeSecondary(m_status);
    titles->addWidget(m_status);
    header->addLayout(titles, 1);
    layout->addLayout(header);

    auto *body = new QHBoxLayout;
    body->setSpacing(10);
    m_symbol = new QLabel(this);
    m_symbol->setObjectName(QStringLiteral("stateSymbol"));
    m_symbol->setAlignment(Qt::AlignTop);
    body->addWidget(m_symbol, 0, Qt::AlignTop);
    auto *texts = new QVBoxLayout;
    texts->setSpacing(8);
    m_message = wrapping(this);
    m_message->setObjectName(QStringLiteral("stateMessage"));
    texts->addWidget(m_message);
    m_detail = wrapping(this);
    m_detail->setObjectName(QStringLiteral("stateDetail"));
    WindowStyle::makeSecondary(m_detail);
    texts->addWidget(m_detail);
    body->addLayout(texts, 1);
    layout->addLayout(body);

    m_progress = new QProgressBar(this);
    m_progress->setObjectName(QStringLiteral("provisioningProgress"));
    m_progress->setRange(0, 100);
    m_progress->setTextVisible(false);
    m_progress->setFixedHeight(6);
    layout->addWidget(m_progress);

    m_stepsBox = new QWidget(this);
    m_steps = new QVBoxLayout(m_stepsBox);
    m_steps->setContentsMargins(0, 0, 0, 0);
    m_steps->setSpacing(4);
    layout->addWidget(m_stepsBox);
    m_provisioningNote = wrapping(this);
    m_provisioningNote->setObjectName(QStringLiteral("provisioningNote"));
    WindowStyle::makeSecondary(m_provisioningNote);
    m_provisioningNote->setText(PlatformTexts::provisioningNote());
    layout->addWidget(m_provisioningNote);

    auto *actions = new QHBoxLayout;
    actions->addStretch();
    m_action = new QPushButton(this);
    m_action->setObjectName(QStringLiteral("stateAction"));
    m_action->setDefault(true);
    m_action->setMinimumWidth(120);
    actions->addWidget(m_action);
    layout->addLayout(actions);
    connect(m_action, &QPushButton::clicked, this, &EngineSetupWindow::performAction);

    m_logToggle = new QToolButton(this);
    m_logToggle->setObjectName(QStringLiteral("logToggle"));
    m_logToggle->setText(QStringLiteral("Setup log"));
    m_logToggle->setCheckable(true);
    m_logToggle->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_logToggle->setArrowType(Qt::RightArrow);
    m_logToggle->setAutoRaise(true);
    m_logToggle->setStyleSheet(
        QStringLiteral("QToolButton { border: none; background: transparent; padding: 2px; }"));
    layout->addWidget(m_logToggle);
    m_log = new QPlainTextEdit(this);
    m_log->setObjectName(QStringLiteral("setupLog"));
    m_log->setReadOnly(true);
    m_log->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_log->setFixedHeight(200);
    m_log->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_log->setMaximumBlockCount(kMaxLogLines);
    layout->addWidget(m_log);
    connect(m_logToggle, &QToolButton::toggled, this, &EngineSetupWindow::setLogShown);

    connect(&m_supervisor, &EngineSupervisor::stateChanged, this, &EngineSetupWindow::refreshState);
    connect(&m_supervisor, &EngineSupervisor::stepsChanged, this, &EngineSetupWindow::refreshSteps);
    connect(&m_supervisor, &EngineSupervisor::logAppended, this, &EngineSetupWindow::appendLog);
    setFixedWidth(540);
    refreshSteps();
    refreshLog();
    setLogShown(false);
    refreshState();
    WindowStyle::installDialogKeys(this);
}

QString EngineSetupWindow::statusLine(const EngineState &state)
{
    return std::visit(
        Overloaded {
            [](const engine_state::Provisioning &) {
                return QStringLiteral("Setting up (first run)");
            },
            [](const engine_state::NeedsPrerequisite &) { return QStringLiteral("Action needed"); },
            [](const engine_state::Failed &) { return QStringLiteral("Problem"); },
            [](const engine_state::Idle &) { return QStringLiteral("Starting"); },
            [](const engine_state::RemoteEndpoint &) { return QStringLiteral("Remote endpoint"); },
            [](const engine_state::MissingPayload &) { return QStringLiteral("Manual start"); },
            [](const engine_state::NeedsSetup &) { return QStringLiteral("Setup required"); },
            [](const engine_state::Running &) { return QStringLiteral("Running"); },
        },
        state);
}

QString EngineSetupWindow::emptyLogText()
{
    return QStringLiteral("No output yet.");
}

void EngineSetupWindow::setLogShown(bool shown)
{
    m_showLog = shown;
    {
        const QSignalBlocker blocker(m_logToggle);
        m_logToggle->setChecked(shown);
    }
    m_logToggle->setArrowType(shown ? Qt::DownArrow : Qt::RightArrow);
    m_log->setVisible(shown);
    fitHeightToContent();
}

void EngineSetupWindow::refreshState()
{
    const EngineState &state = m_supervisor.state();
    m_status->setText(statusLine(state));
    const auto symbol = [this](const QString &name, const QColor &color) {
        m_symbol->setPixmap(SymbolIcon::pixmap(name, 28, color));
        m_symbol->show();
    };
    m_symbol->hide();
    m_message->hide();
    m_detail->hide();
    m_action->hide();
    const auto message = [this](const QString &text) {
        m_message->setText(text);
        m_message->show();
    };
    const auto action = [this](const QString &text) {
        m_action->setText(text);
        m_action->show();
    };
    const bool provisioning = std::holds_alternative<engine_state::Provisioning>(state);
    // After a stopped set-up the checklist stays, so the user sees where it stopped.
    const bool stopped = std::holds_alternative<engine_state::Failed>(state)
        || std::holds_alternative<engine_state::NeedsPrerequisite>(state);
    std::visit(
        Overloaded {
            [&](const engine_state::Provisioning &p) {
                m_progress->setValue(std::clamp(p.percent, 0, 100));
                message(p.message.isEmpty()
                        ? QStringLiteral("%1%").arg(p.percent)
                        : QStringLiteral("%1 (%2%)").arg(p.message).arg(p.percent));
            },
            [&](const engine_state::NeedsPrerequisite &n) {
                symbol(QStringLiteral("exclamationmark.triangle.fill"), SymbolIcon::warningColor());
                message(n.message);
                action(QStringLiteral("Retry"));
            },
            [&](const engine_state::Failed &f) {
                symbol(QStringLiteral("xmark.octagon.fill"), SymbolIcon::failureColor());
                message(f.message);
                action(QStringLiteral("Try Again"));
            },
            [&](const engine_state::Idle &) {},
            [&](const engine_state::RemoteEndpoint &) {
                message(PlatformTexts::remoteEndpointMessage());
            },
            [&](const engine_state::MissingPayload &) {
                message(PlatformTexts::missingPayloadMessage());
            },
            [&](const engine_state::NeedsSetup &) {
                message(PlatformTexts::setupNeededMessage());
                m_detail->setText(PlatformTexts::setupNeededDetail());
                m_detail->show();
                action(QStringLiteral("Set Up Now"));
            },
            [&](const engine_state::Running &) {
                symbol(QStringLiteral("checkmark.circle.fill"), SymbolIcon::successColor());
                message(QStringLiteral("The engine is running."));
            },
        },
        state);
    m_progress->setVisible(provisioning);
    m_stepsBox->setVisible(provisioning || (stopped && !m_supervisor.steps().isEmpty()));
    m_provisioningNote->setVisible(provisioning);
    fitHeightToContent();
}

void EngineSetupWindow::fitHeightToContent()
{
    // The width is fixed; the height follows what the state shows, whatever size the window
    // was given when it was created.
    layout()->activate();
    const int height = layout()->hasHeightForWidth() ? layout()->totalHeightForWidth(width())
                                                     : layout()->totalSizeHint().height();
    setFixedHeight(height);
}

void EngineSetupWindow::refreshSteps()
{
    WindowStyle::clearLayout(m_steps);
    for (const ProvisioningStep &step : m_supervisor.steps()) {
        auto *row = new QWidget(m_stepsBox);
        row->setObjectName(QStringLiteral("step-") + step.id);
        auto *layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(8);
        QWidget *indicator = nullptr;
        QString statusName;
        switch (step.status) {
        case ProvisioningStep::Status::Running: {
            indicator = new StepSpinner(row);
            statusName = QStringLiteral("running");
            break;
        }
        case ProvisioningStep::Status::Done:
        case ProvisioningStep::Status::Failed:
        case ProvisioningStep::Status::Pending: {
            const bool done = step.status == ProvisioningStep::Status::Done;
            const bool failed = step.status == ProvisioningStep::Status::Failed;
            auto *icon = new QLabel(row);
            icon->setPixmap(SymbolIcon::pixmap(done ? QStringLiteral("checkmark.circle.fill")
                    : failed                        ? QStringLiteral("xmark.circle.fill")
                                                    : QStringLiteral("circle"),
                16,
                done         ? SymbolIcon::successColor()
                    : failed ? SymbolIcon::failureColor()
                             : SymbolIcon::secondaryColor()));
            indicator = icon;
            statusName = done ? QStringLiteral("done")
                : failed      ? QStringLiteral("failed")
                              : QStringLiteral("pending");
            break;
        }
        }
        indicator->setObjectName(QStringLiteral("stepStatus"));
        indicator->setProperty("status", statusName);
        indicator->setFixedSize(16, 16);
        layout->addWidget(indicator);
        layout->addWidget(new QLabel(step.label, row), 1);
        m_steps->addWidget(row);
        row->show();
    }
    fitHeightToContent();
}

void EngineSetupWindow::refreshLog()
{
    const QString &log = m_supervisor.log();
    m_showsEmptyLogText = log.isEmpty();
    m_log->setPlainText(m_showsEmptyLogText ? emptyLogText() : log);
    m_log->verticalScrollBar()->setValue(m_log->verticalScrollBar()->maximum());
}

void EngineSetupWindow::appendLog(const QString &text)
{
    if (m_showsEmptyLogText) {
        refreshLog();
        return;
    }
    // Added at the end without touching the reader's selection; the view follows the end
    // only when the reader was already there.
    QScrollBar *scroll = m_log->verticalScrollBar();
    const bool atEnd = scroll->value() == scroll->maximum();
    const int position = scroll->value();
    QTextCursor end(m_log->document());
    end.movePosition(QTextCursor::End);
    end.insertText(text);
    scroll->setValue(atEnd ? scroll->maximum() : position);
}

void EngineSetupWindow::performAction()
{
    const EngineState &state = m_supervisor.state();
    if (std::holds_alternative<engine_state::NeedsSetup>(state)) {
        m_supervisor.beginProvisioning();
    } else if (std::holds_alternative<engine_state::NeedsPrerequisite>(state)
        || std::holds_alternative<engine_state::Failed>(state)) {
        m_supervisor.retry();
    }
}

} // namespace sayvo
