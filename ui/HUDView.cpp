#include "ui/HUDView.h"

#include "ui/SymbolIcon.h"
#include "ui/WaveformView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPropertyAnimation>
#include <QStackedWidget>

namespace sayvo {

namespace {
// The HUD's fixed theme.
const QColor kBackground(28, 28, 30, 235);
const QColor kText(245, 245, 247);
const QColor kListening(255, 69, 58);
const QColor kProcessing(10, 132, 255);
const QColor kSuccess(48, 209, 88);
const QColor kError(255, 159, 10);
const QColor kEmpty(152, 152, 157);
constexpr int kIndicatorSize = 18;
} // namespace

HUDView::HUDView(QWidget *parent) : QWidget(parent)
{
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_TransparentForMouseEvents);

    m_indicators = new QStackedWidget(this);
    m_indicators->setFixedWidth(
        WaveformView::kBarCount * (WaveformView::kBarWidth + WaveformView::kBarSpacing));
    m_indicators->setFixedHeight(kIndicatorSize);
    m_indicators->addWidget(new QWidget());
    m_waveform = new WaveformView();
    m_indicators->addWidget(m_waveform);
    m_spinner = new BusyIndicator();
    m_indicators->addWidget(m_spinner);
    m_symbol = new QLabel();
    m_symbol->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    m_indicators->addWidget(m_symbol);

    m_label = new QLabel(this);
    QPalette palette = m_label->palette();
    palette.setColor(QPalette::WindowText, kText);
    m_label->setPalette(palette);
    QFont font = m_label->font();
    font.setPixelSize(13);
    font.setWeight(QFont::Medium);
    m_label->setFont(font);
    m_label->setTextFormat(Qt::PlainText);

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 0, 16, 0);
    layout->setSpacing(10);
    layout->addWidget(m_indicators, 0, Qt::AlignVCenter);
    layout->addWidget(m_label, 1, Qt::AlignVCenter);
}

QString HUDView::label(const AppState &state, bool captureLive)
{
    if (const auto *listening = state.as<AppState::Listening>()) {
        if (!listening->partialText.isEmpty()) {
            return listening->partialText;
        }
        return captureLive ? QString::fromUtf8("Listening…") : QString::fromUtf8("Starting mic…");
    }
    if (state.is<AppState::Processing>()) {
        return QString::fromUtf8("Processing…");
    }
    if (const auto *success = state.as<AppState::Success>()) {
        return success->wasRaw ? success->formattedText + QStringLiteral(" (raw)")
                               : success->formattedText;
    }
    if (const auto *error = state.as<AppState::Error>()) {
        return error->message;
    }
    if (state.is<AppState::EmptyTranscript>()) {
        return QStringLiteral("Didn't catch that");
    }
    return {};
}

HUDView::Indicator HUDView::indicator(const AppState &state)
{
    if (state.is<AppState::Listening>()) {
        return Indicator::waveform;
    }
    if (state.is<AppState::Processing>()) {
        return Indicator::spinner;
    }
    if (state.is<AppState::Success>() || state.is<AppState::Error>()
        || state.is<AppState::EmptyTranscript>()) {
        return Indicator::symbol;
    }
    return Indicator::none;
}

QString HUDView::symbolName(const AppState &state)
{
    if (state.is<AppState::Success>()) {
        return QStringLiteral("checkmark.circle.fill");
    }
    if (state.is<AppState::Error>()) {
        return QStringLiteral("exclamationmark.triangle.fill");
    }
    if (state.is<AppState::EmptyTranscript>()) {
        return QStringLiteral("mic.slash");
    }
    return {};
}

QColor HUDView::accentColor(const AppState &state)
{
    if (state.is<AppState::Listening>()) {
        return kListening;
    }
    if (state.is<AppState::Processing>()) {
        return kProcessing;
    }
    if (state.is<AppState::Success>()) {
        return kSuccess;
    }
    if (state.is<AppState::Error>()) {
        return kError;
    }
    return kEmpty;
}

void HUDView::setState(const AppState &state, bool captureLive)
{
    const bool wasListening = m_indicator == Indicator::waveform;
    m_indicator = indicator(state);
    const QColor accent = accentColor(state);
    switch (m_indicator) {
    case Indicator::none:
        m_indicators->setCurrentIndex(0);
        break;
    case Indicator::waveform:
        if (!wasListening) {
            m_waveform->resetLevels();
        }
        m_waveform->setColor(accent);
        // Pulse until the microphone delivers: the first word is not being heard yet.
        m_waveform->setPulsing(!captureLive);
        m_indicators->setCurrentWidget(m_waveform);
        break;
    case Indicator::spinner:
        m_spinner->setColor(accent);
        m_indicators->setCurrentWidget(m_spinner);
        break;
    case Indicator::symbol:
        m_symbol->setPixmap(m_symbolIcons.icon(symbolName(state), accent, kIndicatorSize * 2)
                                .pixmap(kIndicatorSize, kIndicatorSize));
        m_indicators->setCurrentWidget(m_symbol);
        break;
    }
    m_fullLabel = label(state, captureLive);
    // A growing partial transcript keeps its newest words in view.
    m_elideLeft = state.is<AppState::Listening>();
    updateElidedLabel();
}

void HUDView::updateElidedLabel()
{
    const int width = std::max(0, m_label->width());
    m_label->setText(m_label->fontMetrics().elidedText(
        m_fullLabel, m_elideLeft ? Qt::ElideLeft : Qt::ElideRight, width));
}

void HUDView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    updateElidedLabel();
}

void HUDView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(kBackground);
    const QRectF pill = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    painter.drawRoundedRect(pill, pill.height() / 2.0, pill.height() / 2.0);
}

BusyIndicator::BusyIndicator(QWidget *parent)
    : QWidget(parent), m_spin(new QPropertyAnimation(this, "angle", this))
{
    setFixedSize(kIndicatorSize, kIndicatorSize);
    m_spin->setStartValue(0);
    m_spin->setEndValue(360);
    m_spin->setDuration(900);
    m_spin->setLoopCount(-1);
}

BusyIndicator::~BusyIndicator() = default;

void BusyIndicator::setColor(const QColor &color)
{
    m_color = color;
    update();
}

void BusyIndicator::setAngle(int angle)
{
    m_angle = angle;
    update();
}

bool BusyIndicator::isSpinning() const
{
    return m_spin->state() == QAbstractAnimation::Running;
}

void BusyIndicator::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    m_spin->start();
}

void BusyIndicator::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    m_spin->stop();
}

void BusyIndicator::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QPen pen(m_color, 2.2, Qt::SolidLine, Qt::RoundCap);
    painter.setPen(pen);
    const QRectF arc = QRectF(rect()).adjusted(2.5, 2.5, -2.5, -2.5);
    painter.drawArc(arc, -m_angle * 16, 270 * 16);
}

} // namespace sayvo
