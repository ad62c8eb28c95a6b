#include "calibration/CalibrationPrompt.h"

namespace sayvo {

const QList<CalibrationPrompt> &CalibrationPrompt::readSlice()
{
    static const QList<CalibrationPrompt> prompts {
        {1, QStringLiteral("The meeting is at 3pm in room 204."), QStringLiteral("default")},
        {2, QStringLiteral("The total comes to $42."), QStringLiteral("default")},
        {3, QStringLiteral("Can you send me the file when you're done?"),
            QStringLiteral("default")},
        {4, QStringLiteral("I can't make it to the call at 4:30."), QStringLiteral("default")},
        {5, QStringLiteral("There's a bug in the checkout flow. We should fix it."),
            QStringLiteral("default")},
        {6, QStringLiteral("Hi Maren, just following up on the proposal we sent last week."),
            QStringLiteral("email")},
        {7, QStringLiteral("Can you confirm you'll be at the 2pm meeting?"),
            QStringLiteral("email")},
        {8, QStringLiteral("Circling back on this \u2014 can we chat tomorrow?"),
            QStringLiteral("email")},
        {9,
            QStringLiteral(
                "The indemnification obligations survive termination of this Agreement."),
            QStringLiteral("legal")},
        {10, QStringLiteral("Notwithstanding Section 1, the covenant remains in force."),
            QStringLiteral("legal")},
        {11, QStringLiteral("The Effective Date is January 1, 2026."), QStringLiteral("legal")},
        {12, QStringLiteral("i think we should ship it on friday"), QStringLiteral("casual")},
        {13, QStringLiteral("you wanna hang out this weekend"), QStringLiteral("casual")},
    };
    return prompts;
}

} // namespace sayvo
