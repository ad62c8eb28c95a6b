#include "ui/WindowStyle.h"

#include <QAbstractButton>
#include <QApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QLayout>
#include <QPalette>
#include <QPushButton>
#include <QWidget>

#include <cmath>

namespace sayvo {

namespace {

double channel(double value)
{
    return value <= 0.03928 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

double luminance(const QColor &c)
{
    return 0.2126 * channel(c.redF()) + 0.7152 * channel(c.greenF()) + 0.0722 * channel(c.blueF());
}

QColor mix(const QColor &from, const QColor &to, double amount)
{
    return QColor::fromRgbF(static_cast<float>(from.redF() + (to.redF() - from.redF()) * amount),
        static_cast<float>(from.greenF() + (to.greenF() - from.greenF()) * amount),
        static_cast<float>(from.blueF() + (to.blueF() - from.blueF()) * amount));
}

} // namespace

QString WindowStyle::sheet()
{
    return QStringLiteral(
        "QPushButton { padding: 5px 14px; border: 1px solid palette(mid); border-radius: 6px;"
        " background: palette(button); color: palette(button-text); }"
        "QPushButton:hover { background: palette(midlight); }"
        "QPushButton:pressed { background: palette(mid); }"
        "QPushButton:focus { border: 2px solid #2f6fde; padding: 4px 13px; }"
        "QPushButton:disabled { color: palette(mid); border-color: palette(midlight); }"
        "QPushButton:checked, QPushButton:default { background: #2f6fde; color: white;"
        " border-color: #2a62c4; }"
        "QPushButton:default:hover { background: #2b66cc; }"
        "QPushButton:default:focus { border: 2px solid palette(highlighted-text);"
        " padding: 4px 13px; }"
        "QPushButton:default:disabled { background: #9db8e8; border-color: #9db8e8;"
        " color: #f4f7fd; }"
        "QPushButton[segment=\"first\"] { border-top-right-radius: 0;"
        " border-bottom-right-radius: 0; }"
        "QPushButton[segment=\"middle\"] { border-radius: 0; border-left: none; }"
        "QPushButton[segment=\"last\"] { border-top-left-radius: 0; border-bottom-left-radius: 0;"
        " border-left: none; }"
        "QFrame[card=\"true\"] { border: 1px solid palette(midlight); border-radius: 9px;"
        " background: palette(base); }"
        "QFrame[card=\"true\"] QLabel { background: transparent; }");
}

void WindowStyle::markAsCard(QWidget *widget)
{
    widget->setProperty("card", true);
    widget->setAttribute(Qt::WA_StyledBackground);
}

double WindowStyle::contrastRatio(const QColor &a, const QColor &b)
{
    const double la = luminance(a);
    const double lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

QColor WindowStyle::secondaryTextColor(const QPalette &palette)
{
    const QColor text = palette.color(QPalette::WindowText);
    const QColor window = palette.color(QPalette::Window);
    const QColor base = palette.color(QPalette::Base);
    // As far towards the background as the contrast allows, and never further than 45 %.
    for (double amount = 0.45; amount > 0.0; amount -= 0.05) {
        const QColor grey = mix(text, window, amount);
        if (contrastRatio(grey, window) >= kMinimumTextContrast + 0.1
            && contrastRatio(grey, base) >= kMinimumTextContrast + 0.1) {
            return grey;
        }
    }
    return text;
}

void WindowStyle::makeSecondary(QLabel *label)
{
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, secondaryTextColor(QApplication::palette()));
    label->setPalette(palette);
}

QLabel *WindowStyle::secondaryLabel(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    makeSecondary(label);
    return label;
}

namespace {

class DialogKeys : public QObject
{
public:
    explicit DialogKeys(QWidget *window) : QObject(window), m_window(window) { }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() != QEvent::KeyPress) {
            return QObject::eventFilter(watched, event);
        }
        const auto *key = static_cast<QKeyEvent *>(event);
        if (key->modifiers() & ~Qt::KeypadModifier) {
            return false;
        }
        if (key->key() == Qt::Key_Escape) {
            if (QPushButton *cancel = visibleButton("escape")) {
                cancel->click();
            } else {
                m_window->close();
            }
            return true;
        }
        if (key->key() != Qt::Key_Return && key->key() != Qt::Key_Enter) {
            return false;
        }
        QWidget *focus = m_window->focusWidget();
        if (auto *button = qobject_cast<QAbstractButton *>(focus)) {
            button->click();
            return true;
        }
        // Fields that take Return themselves (the endpoint, the dictionary entry) keep it.
        if (focus != nullptr && focus->inherits("QLineEdit")) {
            return false;
        }
        if (QPushButton *button = visibleButton(nullptr)) {
            button->click();
            return true;
        }
        return false;
    }

    // The visible, enabled button marked with `property`, or the default one without.
    QPushButton *visibleButton(const char *property) const
    {
        for (QPushButton *button : m_window->findChildren<QPushButton *>()) {
            const bool marked
                = property != nullptr ? button->property(property).toBool() : button->isDefault();
            if (marked && button->isVisible() && button->isEnabled()) {
                return button;
            }
        }
        return nullptr;
    }

private:
    QWidget *m_window;
};

} // namespace

void WindowStyle::markAsEscape(QWidget *button)
{
    button->setProperty("escape", true);
}

void WindowStyle::installDialogKeys(QWidget *window)
{
    // Keys the focused child leaves unhandled travel up to the window, where this sees them.
    window->installEventFilter(new DialogKeys(window));
}

void WindowStyle::clearLayout(QLayout *layout, int keep)
{
    while (layout->count() > keep) {
        QLayoutItem *item = layout->takeAt(0);
        if (QWidget *widget = item->widget()) {
            widget->hide();
            widget->setParent(nullptr);
            widget->deleteLater();
        }
        delete item;
    }
}

} // namespace sayvo
