#pragma once

#include <QString>

class QWidget;

namespace sayvo {

// The look shared by the three windows: buttons with room to breathe, a filled primary
// button, and rounded cards. Widgets opt into a card with markAsCard().
class WindowStyle
{
public:
    static QString sheet();
    static void markAsCard(QWidget *widget);
};

} // namespace sayvo
