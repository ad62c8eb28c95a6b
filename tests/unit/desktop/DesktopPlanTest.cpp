#include "desktop/DesktopPlan.h"

#include <gtest/gtest.h>

using namespace sayvo;

namespace {

QProcessEnvironment environment(std::initializer_list<std::pair<const char *, const char *>> values)
{
    QProcessEnvironment result;
    for (const auto &[name, value] : values) {
        result.insert(QString::fromLatin1(name), QString::fromLatin1(value));
    }
    return result;
}

DesktopSessionFacts wlroots()
{
    DesktopSessionFacts facts;
    facts.kind = SessionKind::wayland;
    facts.desktopName = QStringLiteral("sway");
    facts.dataControl = true;
    facts.virtualKeyboard = true;
    facts.foreignToplevel = true;
    return facts;
}

const DesktopCapabilityStatus &status(const DesktopPlan &plan, DesktopCapability capability)
{
    for (const DesktopCapabilityStatus &entry : plan.capabilities) {
        if (entry.capability == capability) {
            return entry;
        }
    }
    throw std::logic_error("no status for the capability");
}

TEST(SessionKindTest, TheSessionsVariablesDecideNotAnAnsweringXDisplay)
{
    // XWayland sets DISPLAY too; the compositor's socket decides.
    EXPECT_EQ(sessionKind(environment({{"WAYLAND_DISPLAY", "wayland-1"}, {"DISPLAY", ":0"}})),
        SessionKind::wayland);
    EXPECT_EQ(sessionKind(environment({{"XDG_SESSION_TYPE", "wayland"}})), SessionKind::wayland);
    EXPECT_EQ(sessionKind(environment({{"DISPLAY", ":0"}, {"XDG_SESSION_TYPE", "x11"}})),
        SessionKind::x11);
    EXPECT_EQ(sessionKind(environment({{"DISPLAY", ":1"}})), SessionKind::x11);
    EXPECT_EQ(sessionKind(environment({{"XDG_SESSION_TYPE", "x11"}})), SessionKind::x11);
    EXPECT_EQ(sessionKind(environment({{"XDG_SESSION_TYPE", "tty"}})), SessionKind::none);
    EXPECT_EQ(
        sessionKind(environment({{"WAYLAND_DISPLAY", ""}, {"DISPLAY", ""}})), SessionKind::none);
}

TEST(DesktopPlanTest, AnX11SessionKeepsEveryX11Adapter)
{
    DesktopSessionFacts facts;
    facts.kind = SessionKind::x11;
    const DesktopPlan plan = DesktopPlan::choose(facts);
    EXPECT_EQ(plan.adapter(DesktopCapability::trigger), DesktopAdapter::x11);
    EXPECT_EQ(plan.adapter(DesktopCapability::keystrokes), DesktopAdapter::x11);
    EXPECT_EQ(plan.adapter(DesktopCapability::clipboard), DesktopAdapter::x11);
    EXPECT_EQ(plan.adapter(DesktopCapability::focusedWindow), DesktopAdapter::x11);
    EXPECT_EQ(plan.adapter(DesktopCapability::accessibility), DesktopAdapter::atspi);
    EXPECT_TRUE(plan.canShowPanelWithoutFocus);
    for (const DesktopCapabilityStatus &entry : plan.capabilities) {
        EXPECT_TRUE(entry.isAvailable());
        EXPECT_TRUE(entry.action.isEmpty()) << entry.action.toStdString();
    }
}

TEST(DesktopPlanTest, AWlrootsCompositorGetsItsProtocolsAndTheTriggerCommand)
{
    const DesktopPlan plan = DesktopPlan::choose(wlroots());
    EXPECT_EQ(plan.adapter(DesktopCapability::trigger), DesktopAdapter::triggerCommand);
    EXPECT_EQ(plan.adapter(DesktopCapability::keystrokes), DesktopAdapter::waylandProtocol);
    EXPECT_EQ(plan.adapter(DesktopCapability::clipboard), DesktopAdapter::waylandProtocol);
    EXPECT_EQ(plan.adapter(DesktopCapability::focusedWindow), DesktopAdapter::waylandProtocol);
    EXPECT_EQ(plan.adapter(DesktopCapability::accessibility), DesktopAdapter::atspi);
    // No xdg-shell window stays out of the focus.
    EXPECT_FALSE(plan.canShowPanelWithoutFocus);
    const QString binding = status(plan, DesktopCapability::trigger).action;
    EXPECT_TRUE(binding.contains(QStringLiteral("bindsym --no-repeat")));
    EXPECT_TRUE(binding.contains(QStringLiteral("bindsym --release")));
    EXPECT_TRUE(binding.contains(QStringLiteral("sayvo trigger press")));
    EXPECT_TRUE(binding.contains(QStringLiteral("sayvo trigger release")));
}

TEST(DesktopPlanTest, GnomeAndKdeAskTheirPortalsForTheTriggerAndTheKeystrokes)
{
    DesktopSessionFacts facts;
    facts.kind = SessionKind::wayland;
    facts.desktopName = QStringLiteral("GNOME");
    const DesktopPlan plan = DesktopPlan::choose(facts);
    ASSERT_EQ(plan.capabilities.size(), 5u);
    EXPECT_EQ(plan.adapter(DesktopCapability::trigger), DesktopAdapter::portal);
    EXPECT_EQ(plan.adapter(DesktopCapability::keystrokes), DesktopAdapter::portal);
    EXPECT_TRUE(
        status(plan, DesktopCapability::trigger).works.startsWith(QStringLiteral("Asking")));
    EXPECT_TRUE(
        status(plan, DesktopCapability::keystrokes).works.startsWith(QStringLiteral("Asking")));
    const DesktopCapabilityStatus &clipboard = status(plan, DesktopCapability::clipboard);
    EXPECT_FALSE(clipboard.isAvailable());
    EXPECT_FALSE(clipboard.action.isEmpty());
    // The window in front comes from accessibility where no toplevel protocol says.
    EXPECT_EQ(plan.adapter(DesktopCapability::focusedWindow), DesktopAdapter::atspi);
    EXPECT_EQ(plan.adapter(DesktopCapability::accessibility), DesktopAdapter::atspi);
}

TEST(DesktopPlanTest, ARefusedShortcutFallsBackToTheTriggerCommandWithTheDesktopsAdvice)
{
    const DesktopCapabilityStatus refused = portalShortcutStatus(
        PortalState::refused, {}, QStringLiteral("declined"), QStringLiteral("GNOME"));
    EXPECT_EQ(refused.adapter, DesktopAdapter::triggerCommand);
    EXPECT_TRUE(refused.works.contains(QStringLiteral("(declined)")));
    EXPECT_TRUE(refused.action.contains(QStringLiteral("sayvo trigger toggle")));

    const DesktopCapabilityStatus granted
        = portalShortcutStatus(PortalState::granted, QStringLiteral("F5"), {}, {});
    EXPECT_EQ(granted.adapter, DesktopAdapter::portal);
    EXPECT_TRUE(granted.works.contains(QStringLiteral("(F5)")));
    EXPECT_TRUE(portalShortcutStatus(PortalState::granted, {}, {}, {})
                    .works.contains(QStringLiteral("no key yet")));
}

TEST(DesktopPlanTest, RefusedKeystrokesLeaveAccessibilityAndOfferToAskAgain)
{
    const DesktopCapabilityStatus refused = portalKeystrokeStatus(
        PortalState::refused, QStringLiteral("declined"), KeystrokeUse::pasting);
    EXPECT_FALSE(refused.isAvailable());
    EXPECT_TRUE(refused.works.contains(QStringLiteral("accessibility")));
    EXPECT_TRUE(refused.action.contains(QStringLiteral("Ask again")));
    EXPECT_TRUE(
        portalKeystrokeStatus(PortalState::granted, {}, KeystrokeUse::pasting).isAvailable());
}

TEST(DesktopPlanTest, WithoutTheClipboardTheKeystrokesLineSaysTheTextIsTyped)
{
    const DesktopCapabilityStatus typing
        = portalKeystrokeStatus(PortalState::granted, {}, KeystrokeUse::typing);
    EXPECT_TRUE(typing.isAvailable());
    EXPECT_TRUE(typing.works.contains(QStringLiteral("Types the text")));
    EXPECT_FALSE(typing.works.contains(QStringLiteral("Control-V")));
    EXPECT_TRUE(portalKeystrokeStatus(PortalState::granted, {}, KeystrokeUse::pasting)
                    .works.contains(QStringLiteral("Control-V")));
}

TEST(DesktopPlanTest, AnAnswerReplacesTheCapabilitysLineAndIsLogged)
{
    DesktopSessionFacts facts;
    facts.kind = SessionKind::wayland;
    facts.desktopName = QStringLiteral("KDE");
    DesktopPlan plan = DesktopPlan::choose(facts);
    plan.setStatus(portalShortcutStatus(PortalState::granted, QStringLiteral("Meta+D"), {}, {}));
    ASSERT_EQ(plan.capabilities.size(), 5u);
    EXPECT_TRUE(status(plan, DesktopCapability::trigger).works.contains(QStringLiteral("Meta+D")));
    EXPECT_EQ(plan.logLines()
                  .filter(QStringLiteral("trigger key: desktop portal (GlobalShortcuts)"))
                  .size(),
        1);
}

TEST(DesktopPlanTest, ANewerPortalSharesTheClipboardThroughTheRemoteDesktopSession)
{
    DesktopSessionFacts facts;
    facts.kind = SessionKind::wayland;
    facts.desktopName = QStringLiteral("GNOME");
    facts.portalClipboard = true;
    DesktopPlan plan = DesktopPlan::choose(facts);
    EXPECT_EQ(plan.adapter(DesktopCapability::clipboard), DesktopAdapter::portal);
    EXPECT_TRUE(
        status(plan, DesktopCapability::clipboard).works.startsWith(QStringLiteral("Asking")));
    EXPECT_EQ(plan.logLines()
                  .filter(QStringLiteral("clipboard: desktop portal (Clipboard) (Asking"))
                  .size(),
        1);

    plan.setStatus(portalClipboardStatus(PortalState::granted, {}));
    EXPECT_TRUE(status(plan, DesktopCapability::clipboard).isAvailable());
    EXPECT_TRUE(status(plan, DesktopCapability::clipboard)
                    .works.contains(QStringLiteral("your own content back")));
}

TEST(DesktopPlanTest, AnOlderPortalLeavesTheClipboardAloneAndSaysWhatWouldShareIt)
{
    DesktopSessionFacts facts;
    facts.kind = SessionKind::wayland;
    facts.desktopName = QStringLiteral("GNOME");
    const DesktopPlan plan = DesktopPlan::choose(facts);
    const DesktopCapabilityStatus &clipboard = status(plan, DesktopCapability::clipboard);
    EXPECT_EQ(clipboard.adapter, DesktopAdapter::none);
    EXPECT_TRUE(clipboard.action.contains(QStringLiteral("xdg-desktop-portal 1.18")));
    EXPECT_TRUE(
        status(plan, DesktopCapability::keystrokes).works.startsWith(QStringLiteral("Asking")));
}

TEST(DesktopPlanTest, TheDataControlProtocolWinsOverThePortalsClipboard)
{
    DesktopSessionFacts facts = wlroots();
    facts.portalClipboard = true;
    EXPECT_EQ(DesktopPlan::choose(facts).adapter(DesktopCapability::clipboard),
        DesktopAdapter::waylandProtocol);
}

TEST(DesktopPlanTest, DeclinedClipboardAccessFallsBackToTypingWithOneLineSayingSo)
{
    DesktopSessionFacts facts;
    facts.kind = SessionKind::wayland;
    facts.portalClipboard = true;
    DesktopPlan plan = DesktopPlan::choose(facts);
    plan.setStatus(portalClipboardStatus(PortalState::refused, QStringLiteral("not granted")));
    const DesktopCapabilityStatus &clipboard = status(plan, DesktopCapability::clipboard);
    EXPECT_FALSE(clipboard.isAvailable());
    EXPECT_TRUE(clipboard.works.contains(QStringLiteral("(not granted)")));
    EXPECT_TRUE(clipboard.works.contains(QStringLiteral("typed")));
    EXPECT_FALSE(clipboard.action.isEmpty());
    EXPECT_EQ(plan.logLines().filter(QStringLiteral("clipboard:")).size(), 1);
}

TEST(DesktopPlanTest, HyprlandGetsItsOwnBindingSyntax)
{
    DesktopSessionFacts facts = wlroots();
    facts.desktopName = QStringLiteral("Hyprland");
    const QString action = status(DesktopPlan::choose(facts), DesktopCapability::trigger).action;
    EXPECT_TRUE(action.contains(QStringLiteral("bindr = , Control_R, exec, sayvo trigger release")))
        << action.toStdString();
}

TEST(DesktopPlanTest, TheLogNamesEachCapabilitysAdapterOnce)
{
    const QStringList lines = DesktopPlan::choose(wlroots()).logLines();
    EXPECT_EQ(lines.filter(QStringLiteral("clipboard: Wayland data-control")).size(), 1);
    EXPECT_EQ(lines.filter(QStringLiteral("pasting: Wayland virtual keyboard")).size(), 1);
    EXPECT_EQ(lines.filter(QStringLiteral("trigger key: compositor key binding")).size(), 1);
    EXPECT_EQ(lines.filter(QStringLiteral("heads-up display")).size(), 1);

    DesktopSessionFacts bare;
    bare.kind = SessionKind::wayland;
    EXPECT_EQ(DesktopPlan::choose(bare).logLines().filter(QStringLiteral("unavailable")).size(), 1);
}

TEST(DesktopPlanTest, WithoutASessionNothingIsAvailable)
{
    const DesktopPlan plan = DesktopPlan::choose(DesktopSessionFacts {});
    ASSERT_EQ(plan.capabilities.size(), 5u);
    for (const DesktopCapabilityStatus &entry : plan.capabilities) {
        EXPECT_FALSE(entry.isAvailable());
    }
}

} // namespace
