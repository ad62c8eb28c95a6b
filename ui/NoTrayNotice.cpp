#include "ui/NoTrayNotice.h"

#include "ui/TrayAvailability.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace sayvo {

const QString NoTrayNotice::kText
    = QStringLiteral("This desktop has no system tray, so Sayvo cannot show its tray icon. "
                     "Its settings and Quit are here instead; reopen this window by starting "
                     "Sayvo again.");

NoTrayNotice::NoTrayNotice(TrayAvailability &tray, std::function<void()> quit, QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("noTrayNotice"));
    setAttribute(Qt::WA_StyledBackground);
    setStyleSheet(QStringLiteral("#noTrayNotice { background: #fff4ce; }"
                                 "#noTrayNotice QLabel { color: #3b2f00; }"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(14, 8, 14, 8);
    m_label = new QLabel(kText, this);
    m_label->setWordWrap(true);
    layout->addWidget(m_label, 1);
    m_quit = new QPushButton(QStringLiteral("Quit Sayvo"), this);
    m_quit->setObjectName(QStringLiteral("noTrayQuit"));
    connect(m_quit, &QPushButton::clicked, this, [quit = std::move(quit)] { quit(); });
    layout->addWidget(m_quit);

    setVisible(!tray.isAvailable());
    connect(&tray, &TrayAvailability::availabilityChanged, this,
        [this](bool available) { setVisible(!available); });
}

} // namespace sayvo
