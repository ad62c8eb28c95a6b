#include "session/InProcessNotificationCenter.h"

namespace sayvo {

// The desktop posts nothing here: application activation is not announced through a
// notification centre on X11.
NotificationCenter &NotificationCenter::defaultCenter()
{
    static InProcessNotificationCenter center;
    return center;
}

} // namespace sayvo
