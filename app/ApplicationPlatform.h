#pragma once

#include <QString>

namespace sayvo {

// The steps of running the application process that differ between platforms. Defined once
// per platform. Main thread.

// Checks that there is a desktop to run on and picks Qt's platform plugin for it. Writes why
// to stderr and returns false when there is none. Called before QApplication exists.
bool prepareDesktopSession();

// Sends the log lines of Logging to the system log. Called before QApplication exists.
void installSystemLog();

// The program that starts Sayvo, which the login item runs: the `sayvo` command where the
// application is started through it. Needs the QApplication.
QString launchCommandPath();

// Runs the application as an accessory: no Dock icon and no application menu bar.
void becomeAccessoryApplication();

// Brings the application in front of the others, so that the window it shows next gets the
// keyboard even while another application is active.
void activateIgnoringOtherApps();

} // namespace sayvo
