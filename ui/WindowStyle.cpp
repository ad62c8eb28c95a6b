#include "ui/WindowStyle.h"

#include <QWidget>

namespace sayvo {

QString WindowStyle::sheet()
{
    return QStringLiteral(
        "QPushButton { padding: 5px 14px; border: 1px solid #b9b9be; border-radius: 6px;"
        " background: #fbfbfb; color: #1d1d1f; }"
        "QPushButton:hover { background: #f1f1f3; }"
        "QPushButton:pressed { background: #e3e3e7; }"
        "QPushButton:disabled { color: #a1a1a6; background: #f2f2f2; border-color: #d4d4d8; }"
        "QPushButton:checked, QPushButton:default { background: #2f6fde; color: white;"
        " border-color: #2a62c4; }"
        "QPushButton:default:hover { background: #2b66cc; }"
        "QPushButton:default:disabled { background: #9db8e8; border-color: #9db8e8; }"
        "QPushButton[segment=\"first\"] { border-top-right-radius: 0; border-bottom-right-radius: "
        "0;"
        " }"
        "QPushButton[segment=\"middle\"] { border-radius: 0; border-left: none; }"
        "QPushButton[segment=\"last\"] { border-top-left-radius: 0; border-bottom-left-radius: 0;"
        " border-left: none; }"
        "QFrame[card=\"true\"] { border: 1px solid #d2d2d7; border-radius: 9px;"
        " background: palette(base); }"
        "QFrame[card=\"true\"] QLabel { background: transparent; }");
}

void WindowStyle::markAsCard(QWidget *widget)
{
    widget->setProperty("card", true);
    widget->setAttribute(Qt::WA_StyledBackground);
}

} // namespace sayvo
