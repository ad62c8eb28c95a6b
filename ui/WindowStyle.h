#pragma once

#include <QColor>
#include <QString>

class QLabel;
class QLayout;
class QPalette;
class QWidget;

namespace sayvo {

// The look shared by the three windows: buttons with room to breathe, a filled primary
// button, rounded cards and secondary text, all taken from the application palette so light
// and dark desktops both read well. Widgets opt into a card with markAsCard().
class WindowStyle
{
public:
    static QString sheet();
    static void markAsCard(QWidget *widget);

    // Text of lesser weight (captions, hints, counts): a grey between the palette's text and
    // background that still contrasts at least kMinimumTextContrast with both the window and
    // the cards.
    static QColor secondaryTextColor(const QPalette &palette);
    static void makeSecondary(QLabel *label);
    static QLabel *secondaryLabel(const QString &text, QWidget *parent);
    static constexpr double kMinimumTextContrast = 4.5;
    // The WCAG contrast ratio of two colours, 1 to 21.
    static double contrastRatio(const QColor &a, const QColor &b);

    // Gives a plain window the keys of a dialog: Return or Enter presses the focused button,
    // or else the visible default one; Escape presses the visible button marked with
    // markAsEscape() (Cancel while a line is recorded), or else closes the window.
    static void installDialogKeys(QWidget *window);
    static void markAsEscape(QWidget *button);

    // Takes every item out of the layout (all but the last `keep`) and removes their widgets
    // from the window at once; they are freed on the next event-loop turn, since one of them
    // may hold the button whose click asked for the change.
    static void clearLayout(QLayout *layout, int keep = 0);
};

} // namespace sayvo
