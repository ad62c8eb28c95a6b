#include "engine/format/DomainDetector.h"

#include <gtest/gtest.h>

namespace sayvo {
namespace {

ContextPack app(const char *bundleId, const char *title = nullptr, const char *screen = nullptr)
{
    ContextPack pack;
    pack.appBundleId = bundleId;
    if (title) {
        pack.windowTitle = title;
    }
    if (screen) {
        pack.screenText = screen;
    }
    return pack;
}

TEST(DomainDetector, MailApplicationsAreEmail)
{
    EXPECT_EQ(DomainDetector::detect(app("org.mozilla.Thunderbird")), "email");
    EXPECT_EQ(DomainDetector::detect(app("com.apple.mail")), "email");
    EXPECT_EQ(DomainDetector::detect(app("firefox", "Inbox (3) - Gmail")), "email");
}

TEST(DomainDetector, ChatApplicationsAreCasual)
{
    EXPECT_EQ(DomainDetector::detect(app("com.tinyspeck.slackmacgap")), "casual");
    EXPECT_EQ(DomainDetector::detect(app("discord")), "casual");
}

TEST(DomainDetector, ContractsAreLegal)
{
    EXPECT_EQ(
        DomainDetector::detect(app("libreoffice-writer", "Services Agreement v3.odt")), "legal");
    EXPECT_EQ(
        DomainDetector::detect(app("gedit", "notes.txt", "WHEREAS the Parties wish")), "legal");
}

TEST(DomainDetector, AnythingElseIsDefault)
{
    EXPECT_EQ(
        DomainDetector::detect(app("org.gnome.TextEditor", "todo.txt", "buy milk")), "default");
    EXPECT_EQ(DomainDetector::detect(ContextPack {}), "default");
}

TEST(DomainDetector, KnowsTheFourDomains)
{
    for (const char *d : {"default", "email", "legal", "casual"}) {
        EXPECT_TRUE(DomainDetector::isKnownDomain(d));
    }
    EXPECT_FALSE(DomainDetector::isKnownDomain("Email"));
    EXPECT_FALSE(DomainDetector::isKnownDomain(""));
}

} // namespace
} // namespace sayvo
