#include "calibration/CalibrationPrompt.h"

#include <gtest/gtest.h>

namespace sayvo {
namespace {

TEST(CalibrationPromptTest, TheReadSliceHoldsThirteenSentencesInReadingOrder)
{
    const QList<CalibrationPrompt> &p = CalibrationPrompt::readSlice();
    ASSERT_EQ(p.size(), 13);
    const QList<CalibrationPrompt> expected {
        {1, "The meeting is at 3pm in room 204.", "default"},
        {2, "The total comes to $42.", "default"},
        {3, "Can you send me the file when you're done?", "default"},
        {4, "I can't make it to the call at 4:30.", "default"},
        {5, "There's a bug in the checkout flow. We should fix it.", "default"},
        {6, "Hi Maren, just following up on the proposal we sent last week.", "email"},
        {7, "Can you confirm you'll be at the 2pm meeting?", "email"},
        {8, QString::fromUtf8("Circling back on this \xE2\x80\x94 can we chat tomorrow?"), "email"},
        {9, "The indemnification obligations survive termination of this Agreement.", "legal"},
        {10, "Notwithstanding Section 1, the covenant remains in force.", "legal"},
        {11, "The Effective Date is January 1, 2026.", "legal"},
        {12, "i think we should ship it on friday", "casual"},
        {13, "you wanna hang out this weekend", "casual"},
    };
    for (qsizetype i = 0; i < p.size(); ++i) {
        EXPECT_EQ(p[i].id, expected[i].id);
        EXPECT_EQ(p[i].text, expected[i].text) << p[i].text.toStdString();
        EXPECT_EQ(p[i].domain, expected[i].domain);
    }
    EXPECT_TRUE(p[7].text.contains(QChar(0x2014)));
}

} // namespace
} // namespace sayvo
