#include "ui/CalibrationWindow.h"

#include "calibration/CalibrationController.h"
#include "ui/SymbolIcon.h"
#include "ui/WindowStyle.h"

#include <QApplication>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace sayvo {

namespace {

using Phase = CalibrationController::Phase;

QLabel *label(const QString &text, QWidget *parent, const char *name = nullptr)
{
    auto *l = new QLabel(text, parent);
    l->setWordWrap(true);
    if (name != nullptr) {
        l->setObjectName(QString::fromLatin1(name));
    }
    return l;
}

QPushButton *button(const QString &text, QWidget *parent, const char *name)
{
    auto *b = new QPushButton(text, parent);
    b->setObjectName(QString::fromLatin1(name));
    return b;
}

QFrame *card(QWidget *parent, const char *name)
{
    auto *frame = new QFrame(parent);
    frame->setObjectName(QString::fromLatin1(name));
    WindowStyle::markAsCard(frame);
    return frame;
}

} // namespace

CalibrationWindow::CalibrationWindow(CalibrationController &controller, QWidget *parent)
    : QWidget(parent, Qt::Window), m_controller(controller)
{
    setWindowTitle(QStringLiteral("Accuracy Calibration"));
    setWindowFlag(Qt::WindowMaximizeButtonHint, false);
    setStyleSheet(WindowStyle::sheet());
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 18, 20, 18);
    layout->setSpacing(12);

    auto *title = label(QStringLiteral("Accuracy Calibration"), this);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.45);
    titleFont.setBold(true);
    title->setFont(titleFont);
    layout->addWidget(title);
    auto *intro = label(
        QStringLiteral("Read each line aloud exactly as written. Because we know the text, we can "
                       "measure how accurate transcription is for your voice. Your audio is never "
                       "saved \u2014 only the text is kept."),
        this);
    WindowStyle::makeSecondary(intro);
    layout->addWidget(intro);

    // Prompt card.
    QFrame *prompt = card(this, "promptCard");
    m_promptCard = prompt;
    auto *promptLayout = new QVBoxLayout(prompt);
    promptLayout->setContentsMargins(16, 12, 16, 12);
    promptLayout->setSpacing(6);
    auto *promptTop = new QHBoxLayout;
    m_promptDomain = label({}, prompt, "promptDomain");
    WindowStyle::makeSecondary(m_promptDomain);
    m_progress = label({}, prompt, "progress");
    m_progress->setAlignment(Qt::AlignRight);
    WindowStyle::makeSecondary(m_progress);
    promptTop->addWidget(m_promptDomain);
    promptTop->addStretch();
    promptTop->addWidget(m_progress);
    promptLayout->addLayout(promptTop);
    m_promptText = label({}, prompt, "promptText");
    m_promptText->setTextFormat(Qt::PlainText);
    QFont promptFont = m_promptText->font();
    promptFont.setPointSizeF(promptFont.pointSizeF() * 1.3);
    m_promptText->setFont(promptFont);
    promptLayout->addWidget(m_promptText);
    m_error = label({}, prompt, "lastError");
    QPalette warning = m_error->palette();
    warning.setColor(QPalette::WindowText, SymbolIcon::warningColor().darker(115));
    m_error->setPalette(warning);
    promptLayout->addWidget(m_error);
    layout->addWidget(prompt);

    // Controls.
    auto *controls = new QHBoxLayout;
    m_startReading = button(QStringLiteral("&Start Reading"), this, "startReading");
    m_startReading->setDefault(true);
    m_readingHint = label(QStringLiteral("Click, read the line, then click Done."), this, "hint");
    WindowStyle::makeSecondary(m_readingHint);
    m_recording = label(QStringLiteral("Recording\u2026"), this, "recordingLabel");
    QPalette red = m_recording->palette();
    red.setColor(QPalette::WindowText, SymbolIcon::failureColor());
    m_recording->setPalette(red);
    m_done = button(QStringLiteral("&Done"), this, "done");
    m_done->setDefault(true);
    m_cancel = button(QStringLiteral("Cancel"), this, "cancel");
    WindowStyle::markAsEscape(m_cancel);
    m_transcribing = label(QStringLiteral("Transcribing\u2026"), this, "transcribingLabel");
    controls->addWidget(m_startReading);
    controls->addWidget(m_readingHint, 1);
    controls->addWidget(m_recording);
    controls->addStretch();
    controls->addWidget(m_cancel);
    controls->addWidget(m_done);
    controls->addWidget(m_transcribing);
    layout->addLayout(controls);
    connect(m_startReading, &QPushButton::clicked, &m_controller,
        &CalibrationController::startRecording);
    connect(m_done, &QPushButton::clicked, &m_controller, &CalibrationController::stopRecording);
    connect(m_cancel, &QPushButton::clicked, &m_controller, &CalibrationController::cancel);

    m_reviewing = label(QStringLiteral("Every line's been read. Redo or remove any of them below, "
                                       "then Submit when you're happy with the set."),
        this, "reviewingText");
    layout->addWidget(m_reviewing);

    // Finished.
    m_finished = new QWidget(this);
    auto *finishedLayout = new QHBoxLayout(m_finished);
    finishedLayout->setContentsMargins(0, 0, 0, 0);
    auto *finishedIcon = new QLabel(m_finished);
    finishedIcon->setPixmap(SymbolIcon::pixmap(
        QStringLiteral("checkmark.circle.fill"), 24, SymbolIcon::successColor()));
    finishedLayout->addWidget(finishedIcon);
    auto *complete = label(QStringLiteral("Calibration complete"), m_finished, "completeHeading");
    QFont headingFont = complete->font();
    headingFont.setBold(true);
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.2);
    complete->setFont(headingFont);
    finishedLayout->addWidget(complete, 1);
    m_runAgain = button(QStringLiteral("&Run Again"), m_finished, "runAgain");
    finishedLayout->addWidget(m_runAgain);
    layout->addWidget(m_finished);
    connect(m_runAgain, &QPushButton::clicked, &m_controller, &CalibrationController::restart);

    // Results.
    m_resultsScroll = new QScrollArea(this);
    m_resultsScroll->setObjectName(QStringLiteral("resultsList"));
    m_resultsScroll->setWidgetResizable(true);
    m_resultsScroll->setFrameShape(QFrame::NoFrame);
    m_resultsScroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto *resultsContent = new QWidget(m_resultsScroll);
    m_results = new QVBoxLayout(resultsContent);
    m_results->setContentsMargins(0, 0, 4, 0);
    m_results->setSpacing(6);
    m_results->addStretch();
    m_resultsScroll->setWidget(resultsContent);
    layout->addWidget(m_resultsScroll, 1);

    // Summary.
    QFrame *summary = card(this, "summary");
    m_summary = summary;
    summary->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Maximum);
    auto *summaryLayout = new QVBoxLayout(summary);
    summaryLayout->setContentsMargins(16, 10, 16, 10);
    auto *figures = new QHBoxLayout;
    const auto figure = [&](const QString &caption, QLabel *&value, const char *name) {
        auto *box = new QVBoxLayout;
        box->setSpacing(2);
        auto *c = label(caption, summary);
        WindowStyle::makeSecondary(c);
        value = label({}, summary, name);
        QFont f = value->font();
        f.setBold(true);
        f.setPointSizeF(f.pointSizeF() * 1.35);
        value->setFont(f);
        box->addWidget(c);
        box->addWidget(value);
        figures->addLayout(box);
    };
    figure(QStringLiteral("Word error rate"), m_meanWER, "meanWER");
    figure(QStringLiteral("Exact matches"), m_exactMatches, "exactMatches");
    figures->setSpacing(40);
    figures->addStretch();
    summaryLayout->addLayout(figures);
    auto *note
        = label(QStringLiteral("Word error rate ignores capitalization and punctuation, so it "
                               "measures whether the right words were heard. Exact match is "
                               "stricter and also grades formatting."),
            summary);
    WindowStyle::makeSecondary(note);
    summaryLayout->addWidget(note);
    layout->addWidget(summary);

    // Submit bar and start over.
    m_submitBar = new QWidget(this);
    auto *submitLayout = new QHBoxLayout(m_submitBar);
    submitLayout->setContentsMargins(0, 0, 0, 0);
    m_buffered = label({}, m_submitBar, "bufferedText");
    WindowStyle::makeSecondary(m_buffered);
    submitLayout->addWidget(m_buffered, 1);
    m_submit = button(QStringLiteral("S&ubmit"), m_submitBar, "submit");
    m_submit->setDefault(true);
    submitLayout->addWidget(m_submit);
    layout->addWidget(m_submitBar);
    connect(m_submit, &QPushButton::clicked, &m_controller, &CalibrationController::submit);

    // Shown when Submit was pressed with sharing off: nothing leaves the machine unless the
    // user turns sharing on here or in Settings.
    m_sharingNotice = new QWidget(this);
    m_sharingNotice->setObjectName(QStringLiteral("sharingNotice"));
    auto *sharingLayout = new QHBoxLayout(m_sharingNotice);
    sharingLayout->setContentsMargins(0, 0, 0, 0);
    m_sharingText = label(QStringLiteral("Calibration results are only sent when sharing is on "
                                         "(Share post-edit corrections, in Settings \u2192 "
                                         "Privacy). Nothing has been sent."),
        m_sharingNotice, "sharingText");
    sharingLayout->addWidget(m_sharingText, 1);
    m_enableSharing
        = button(QStringLiteral("&Turn On Sharing and Submit"), m_sharingNotice, "enableSharing");
    sharingLayout->addWidget(m_enableSharing, 0, Qt::AlignVCenter);
    layout->addWidget(m_sharingNotice);
    connect(m_enableSharing, &QPushButton::clicked, &m_controller,
        &CalibrationController::enableSharingAndSubmit);

    auto *startOverRow = new QHBoxLayout;
    m_startOver = button(QStringLiteral("Start &Over"), this, "startOver");
    startOverRow->addWidget(m_startOver);
    startOverRow->addStretch();
    layout->addLayout(startOverRow);
    connect(m_startOver, &QPushButton::clicked, &m_controller, &CalibrationController::restart);
    // Takes the spare height while there are no results to list, so the sections stay together.
    layout->addStretch(0);

    connect(&m_controller, &CalibrationController::phaseChanged, this, &CalibrationWindow::refresh);
    connect(&m_controller, &CalibrationController::pendingQueueChanged, this,
        &CalibrationWindow::refresh);
    connect(
        &m_controller, &CalibrationController::lastErrorChanged, this, &CalibrationWindow::refresh);
    connect(&m_controller, &CalibrationController::isSubmittingChanged, this,
        &CalibrationWindow::refresh);
    connect(&m_controller, &CalibrationController::isAwaitingSharingChanged, this,
        &CalibrationWindow::refresh);
    connect(&m_controller, &CalibrationController::canStartRecordingChanged, this,
        &CalibrationWindow::refresh);
    connect(&m_controller, &CalibrationController::resultsChanged, this,
        &CalibrationWindow::refreshResults);

    setFixedWidth(
        kContentWidth + layout->contentsMargins().left() + layout->contentsMargins().right());
    // Tall enough for a dozen result rows when the screen allows; the user may resize it.
    setMinimumHeight(kMinimumHeight);
    int height = kPreferredHeight;
    if (const QScreen *screen = QGuiApplication::primaryScreen()) {
        height = std::clamp(screen->availableGeometry().height() - 80, kMinimumHeight, height);
    }
    resize(width(), height);
    refreshResults();
    WindowStyle::installDialogKeys(this);
}

void CalibrationWindow::refresh()
{
    const Phase phase = m_controller.phase();
    const auto &results = m_controller.results();
    const auto promptCount = static_cast<long long>(m_controller.prompts().size());
    const auto resultCount = static_cast<long long>(results.size());

    const std::optional<CalibrationPrompt> prompt = m_controller.currentPrompt();
    m_promptCard->setVisible(prompt.has_value());
    if (prompt) {
        m_promptText->setText(prompt->text);
        m_promptDomain->setText(prompt->domain.toUpper());
        m_progress->setText(QString::asprintf("%lld of %lld done", resultCount, promptCount));
    }
    const std::optional<QString> &error = m_controller.lastError();
    m_error->setVisible(error.has_value());
    m_error->setText(error.value_or(QString()));

    const bool ready = phase == Phase::ready && prompt.has_value();
    m_startReading->setVisible(ready);
    // Dictation that is still running or on screen finishes first.
    m_startReading->setEnabled(m_controller.canStartRecording());
    m_readingHint->setVisible(ready);
    m_recording->setVisible(phase == Phase::recording);
    m_done->setVisible(phase == Phase::recording);
    // Cancel stays while transcribing too: a final that never comes (the engine went away
    // mid-line) must not leave the window waiting for good. It drops the line's result.
    m_cancel->setVisible(phase == Phase::recording || phase == Phase::scoring);
    m_transcribing->setVisible(phase == Phase::scoring);
    m_reviewing->setVisible(phase == Phase::reviewing);

    m_resultsScroll->setVisible(!results.isEmpty());
    m_summary->setVisible(!results.isEmpty());
    m_meanWER->setText(QString::asprintf("%.1f%%", m_controller.meanWER() * 100.0));
    const auto exact
        = std::count_if(results.begin(), results.end(), [](const auto &r) { return r.isExact(); });
    m_exactMatches->setText(
        QString::number(exact) + QStringLiteral(" of ") + QString::number(resultCount));

    m_submitBar->setVisible(!results.isEmpty() && phase != Phase::finished);
    m_buffered->setText(m_controller.isSubmitting()
            ? QString::asprintf("Sending %lld results\u2026", resultCount)
            : QString::asprintf(
                "%lld of %lld buffered \u2014 nothing sent yet", resultCount, promptCount));
    m_submit->setEnabled(m_controller.canSubmit());
    m_sharingNotice->setVisible(m_controller.isAwaitingSharing() && phase != Phase::finished);
    m_finished->setVisible(phase == Phase::finished);
    m_startOver->setVisible(m_controller.canStartOver());
    // Lines can be redone or removed only between recordings and before the set is sent.
    const bool editable = phase == Phase::ready || phase == Phase::reviewing;
    for (QToolButton *b : m_resultsScroll->findChildren<QToolButton *>()) {
        b->setEnabled(editable && !m_controller.isSubmitting());
    }
    keepKeyboardFocus();
}

void CalibrationWindow::keepKeyboardFocus()
{
    // A pressed button that hides itself would leave the keyboard nowhere; the control the
    // new phase is about takes the focus instead.
    QWidget *focus = QApplication::focusWidget();
    if (!isActiveWindow() || (focus != nullptr && focus->window() == this && focus->isVisible())) {
        return;
    }
    for (QPushButton *candidate : {m_startReading, m_done, m_cancel, m_submit, m_runAgain}) {
        if (candidate->isVisibleTo(this) && candidate->isEnabled()) {
            candidate->setFocus(Qt::OtherFocusReason);
            return;
        }
    }
}

void CalibrationWindow::refreshResults()
{
    // The stretch at the end stays.
    WindowStyle::clearLayout(m_results, 1);
    int index = 0;
    for (const CalibrationController::Result &result : m_controller.results()) {
        auto *row = new QFrame;
        row->setObjectName(QStringLiteral("resultRow"));
        row->setProperty("promptId", result.promptId);
        WindowStyle::markAsCard(row);
        auto *layout = new QHBoxLayout(row);
        layout->setContentsMargins(10, 8, 6, 8);
        layout->setSpacing(8);
        auto *icon = new QLabel(row);
        icon->setObjectName(QStringLiteral("resultSymbol"));
        icon->setProperty("symbol",
            result.isExact() ? QStringLiteral("checkmark.circle.fill")
                             : QStringLiteral("exclamationmark.circle.fill"));
        icon->setPixmap(result.isExact()
                ? SymbolIcon::pixmap(
                    QStringLiteral("checkmark.circle.fill"), 18, SymbolIcon::successColor())
                : SymbolIcon::pixmap(
                    QStringLiteral("exclamationmark.circle.fill"), 18, SymbolIcon::warningColor()));
        layout->addWidget(icon, 0, Qt::AlignTop);
        auto *texts = new QVBoxLayout;
        texts->setSpacing(2);
        auto *reference = label(result.reference, row, "reference");
        reference->setTextFormat(Qt::PlainText);
        auto *transcript = label(result.transcript, row, "transcript");
        transcript->setTextFormat(Qt::PlainText);
        WindowStyle::makeSecondary(transcript);
        texts->addWidget(reference);
        texts->addWidget(transcript);
        layout->addLayout(texts, 1);
        auto *wer = label(QString::asprintf("WER %.0f%%", result.wer * 100.0), row, "wer");
        wer->setWordWrap(false);
        layout->addWidget(wer, 0, Qt::AlignTop);
        auto *redo = new QToolButton(row);
        redo->setObjectName(QStringLiteral("redo"));
        redo->setText(QStringLiteral("Redo this line"));
        redo->setToolTip(QStringLiteral("Redo this line"));
        redo->setIcon(SymbolIcon::windowIcon(QStringLiteral("arrow.counterclockwise")));
        redo->setToolButtonStyle(Qt::ToolButtonIconOnly);
        redo->setAutoRaise(true);
        auto *remove = new QToolButton(row);
        remove->setObjectName(QStringLiteral("remove"));
        remove->setIcon(SymbolIcon::windowIcon(QStringLiteral("xmark")));
        remove->setToolTip(QStringLiteral("Remove this result and retest it later"));
        remove->setAccessibleName(QStringLiteral("Remove this result"));
        remove->setAccessibleDescription(QStringLiteral("Remove this result and retest it later"));
        redo->setAccessibleName(QStringLiteral("Redo this line"));
        remove->setAutoRaise(true);
        layout->addWidget(redo, 0, Qt::AlignTop);
        layout->addWidget(remove, 0, Qt::AlignTop);
        const QUuid id = result.id;
        connect(redo, &QToolButton::clicked, &m_controller, [this, id] { m_controller.redo(id); });
        connect(
            remove, &QToolButton::clicked, &m_controller, [this, id] { m_controller.remove(id); });
        m_results->insertWidget(index++, row);
        row->show();
    }
    refresh();
}

} // namespace sayvo
