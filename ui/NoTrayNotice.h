#pragma once

#include <QWidget>

#include <functional>

class QLabel;
class QPushButton;

namespace sayvo {

class TrayAvailability;

// A band across a window that says why Sayvo shows no tray icon and offers Quit, which the
// tray menu would otherwise hold. Shown exactly while the desktop has no tray. Main thread.
class NoTrayNotice : public QWidget
{
    Q_OBJECT

public:
    static const QString kText;

    NoTrayNotice(TrayAvailability &tray, std::function<void()> quit, QWidget *parent = nullptr);

    QLabel *label() const { return m_label; }
    QPushButton *quitButton() const { return m_quit; }

private:
    QLabel *m_label = nullptr;
    QPushButton *m_quit = nullptr;
};

} // namespace sayvo
