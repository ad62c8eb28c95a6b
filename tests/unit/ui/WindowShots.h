#pragma once

#include <QDir>
#include <QWidget>

namespace sayvo::test {

// Keeps a picture of a window in the build tree's screenshots folder, so that a run leaves
// every tab, state and phase behind for a person to look at.
inline bool saveShot(QWidget &window, const QString &name)
{
    const QString dir = QStringLiteral(SAYVO_SCREENSHOT_DIR);
    QDir().mkpath(dir);
    return window.grab().save(dir + QLatin1Char('/') + name + QStringLiteral(".png"));
}

} // namespace sayvo::test
