#pragma once

#include <QWidget>

class QLabel;
class QPushButton;
class QScrollArea;
class QVBoxLayout;

namespace sayvo {

class CalibrationController;

// The "Accuracy Calibration" window: the line to read, the recording controls, the scored
// lines with redo and remove, the summary and the submit bar. It keeps nothing of its own:
// every button calls the controller and every change the controller publishes redraws it, so
// closing and reopening shows the same run. Main thread only; the controller must outlive it.
class CalibrationWindow : public QWidget
{
    Q_OBJECT

public:
    explicit CalibrationWindow(CalibrationController &controller, QWidget *parent = nullptr);

    static constexpr int kContentWidth = 560;
    static constexpr int kMinimumHeight = 560;
    static constexpr int kPreferredHeight = 700;

private:
    void refresh();
    void refreshResults();
    void keepKeyboardFocus();

    CalibrationController &m_controller;

    QWidget *m_promptCard = nullptr;
    QLabel *m_promptText = nullptr;
    QLabel *m_promptDomain = nullptr;
    QLabel *m_progress = nullptr;
    QLabel *m_error = nullptr;

    QPushButton *m_startReading = nullptr;
    QLabel *m_readingHint = nullptr;
    QLabel *m_recording = nullptr;
    QPushButton *m_done = nullptr;
    QPushButton *m_cancel = nullptr;
    QLabel *m_transcribing = nullptr;

    QLabel *m_reviewing = nullptr;
    QScrollArea *m_resultsScroll = nullptr;
    QVBoxLayout *m_results = nullptr;

    QWidget *m_summary = nullptr;
    QLabel *m_meanWER = nullptr;
    QLabel *m_exactMatches = nullptr;

    QWidget *m_submitBar = nullptr;
    QLabel *m_buffered = nullptr;
    QPushButton *m_submit = nullptr;
    QWidget *m_sharingNotice = nullptr;
    QLabel *m_sharingText = nullptr;
    QPushButton *m_enableSharing = nullptr;

    QWidget *m_finished = nullptr;
    QPushButton *m_runAgain = nullptr;
    QPushButton *m_startOver = nullptr;
};

} // namespace sayvo
