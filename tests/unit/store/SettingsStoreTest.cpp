#include "store/SettingsStore.h"
#include "store/Subscribe.h"
#include "support/store/FakePreferenceStore.h"
#include "support/store/StorePrinters.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

#include <memory>

namespace sayvo {
namespace {

using Write = FakePreferenceStore::Write;

constexpr QLatin1String kEndpoint(SettingsStore::kEndpointURLKey);
constexpr QLatin1String kTrigger(SettingsStore::kHotkeyTriggerKey);
constexpr QLatin1String kMode(SettingsStore::kTriggerModeKey);
constexpr QLatin1String kMethod(SettingsStore::kInsertionMethodKey);
constexpr QLatin1String kLanguage(SettingsStore::kLanguageKey);
constexpr QLatin1String kDictionary(SettingsStore::kPersonalDictionaryKey);
constexpr QLatin1String kFeedback(SettingsStore::kFeedbackEnabledKey);
constexpr QLatin1String kLaunch(SettingsStore::kLaunchAtLoginKey);
constexpr QLatin1String kDevice(SettingsStore::kInputDeviceUIDKey);

Write set(const QString &key, const QVariant &value)
{
    return {Write::Kind::set, key, value};
}

Write removal(const QString &key)
{
    return {Write::Kind::remove, key, QVariant()};
}

TEST(SettingsStore, KeysAreTheDocumentedOnes)
{
    EXPECT_EQ(kEndpoint, "sayvo.endpointURL");
    EXPECT_EQ(kTrigger, "sayvo.hotkeyTrigger");
    EXPECT_EQ(kMode, "sayvo.triggerMode");
    EXPECT_EQ(kMethod, "sayvo.insertionMethod");
    EXPECT_EQ(kLanguage, "sayvo.language");
    EXPECT_EQ(kDictionary, "sayvo.personalDictionary");
    EXPECT_EQ(kFeedback, "sayvo.feedbackEnabled");
    EXPECT_EQ(kLaunch, "sayvo.launchAtLogin");
    EXPECT_EQ(kDevice, "sayvo.inputDeviceUID");
}

TEST(SettingsStore, FirstLaunchLoadsEveryDefault)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);

    EXPECT_EQ(settings.endpointURL(), QUrl("ws://127.0.0.1:8765"));
    EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::fnGlobe);
    EXPECT_EQ(settings.triggerMode(), TriggerMode::holdToTalk);
    EXPECT_EQ(settings.insertionMethod(), InsertionMethod::paste);
    EXPECT_EQ(settings.language(), std::nullopt);
    EXPECT_EQ(settings.personalDictionary(), QStringList {});
    EXPECT_FALSE(settings.feedbackEnabled());
    EXPECT_FALSE(settings.launchAtLogin());
    EXPECT_EQ(settings.inputDeviceUID(), std::nullopt);
}

// Loading writes nothing but the device key, whose write-through runs once so that the key
// ends up holding what was read or nothing at all.
TEST(SettingsStore, LoadingWritesOnlyTheDeviceKey)
{
    FakePreferenceStore empty;
    SettingsStore first(empty);
    EXPECT_EQ(empty.writes(), std::vector<Write> {removal(kDevice)});

    FakePreferenceStore withDevice(QVariantMap {{kDevice, QStringLiteral("usb-mic-1")}});
    SettingsStore second(withDevice);
    EXPECT_EQ(second.inputDeviceUID(), QStringLiteral("usb-mic-1"));
    EXPECT_EQ(withDevice.writes(), std::vector<Write> {set(kDevice, QStringLiteral("usb-mic-1"))});
}

TEST(SettingsStore, UnreadableDeviceKeyIsRemovedOnLoad)
{
    FakePreferenceStore preferences(QVariantMap {{kDevice, QStringList {"a", "b"}}});
    SettingsStore settings(preferences);
    EXPECT_EQ(settings.inputDeviceUID(), std::nullopt);
    EXPECT_FALSE(preferences.contains(kDevice));
}

TEST(SettingsStore, LoadsStoredValues)
{
    FakePreferenceStore preferences(QVariantMap {
        {kEndpoint, QStringLiteral("wss://10.0.0.2:9000/engine")},
        {kTrigger, QStringLiteral("rightOption")},
        {kMode, QStringLiteral("toggle")},
        {kMethod, QStringLiteral("axDirect")},
        {kLanguage, QStringLiteral("hi")},
        {kDictionary, QStringList {"Kubernetes", "Priya"}},
        {kFeedback, true},
        {kLaunch, true},
        {kDevice, QStringLiteral("bt-earbuds")},
    });
    SettingsStore settings(preferences);

    EXPECT_EQ(settings.endpointURL(), QUrl("wss://10.0.0.2:9000/engine"));
    EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::rightOption);
    EXPECT_EQ(settings.triggerMode(), TriggerMode::toggle);
    EXPECT_EQ(settings.insertionMethod(), InsertionMethod::axDirect);
    EXPECT_EQ(settings.language(), QStringLiteral("hi"));
    EXPECT_EQ(settings.personalDictionary(), (QStringList {"Kubernetes", "Priya"}));
    EXPECT_TRUE(settings.feedbackEnabled());
    EXPECT_TRUE(settings.launchAtLogin());
    EXPECT_EQ(settings.inputDeviceUID(), QStringLiteral("bt-earbuds"));
}

TEST(SettingsStore, EachStoredTriggerLoadsByItsExactRawValue)
{
    for (HotkeyTrigger trigger : kAllHotkeyTriggers) {
        FakePreferenceStore preferences(QVariantMap {{kTrigger, rawValue(trigger)}});
        EXPECT_EQ(SettingsStore(preferences).hotkeyTrigger(), trigger);
    }
}

TEST(SettingsStore, TriggerInAnotherLetterCaseOrUnknownLoadsAsFnGlobe)
{
    for (const char *stored : {"F5", "RightOption", "MENUBARTOGGLE", "capsLock", "", " f5"}) {
        FakePreferenceStore preferences(QVariantMap {{kTrigger, QString::fromLatin1(stored)}});
        EXPECT_EQ(SettingsStore(preferences).hotkeyTrigger(), HotkeyTrigger::fnGlobe) << stored;
    }
}

TEST(SettingsStore, ModeWithCapitalTLoadsAsHoldToTalk)
{
    FakePreferenceStore capital(QVariantMap {{kMode, QStringLiteral("Toggle")}});
    EXPECT_EQ(SettingsStore(capital).triggerMode(), TriggerMode::holdToTalk);
    FakePreferenceStore other(QVariantMap {{kMode, QStringLiteral("press")}});
    EXPECT_EQ(SettingsStore(other).triggerMode(), TriggerMode::holdToTalk);
}

TEST(SettingsStore, InsertionMethodWithCapitalAXLoadsAsPaste)
{
    FakePreferenceStore capital(QVariantMap {{kMethod, QStringLiteral("AXDirect")}});
    EXPECT_EQ(SettingsStore(capital).insertionMethod(), InsertionMethod::paste);
    FakePreferenceStore other(QVariantMap {{kMethod, QStringLiteral("typing")}});
    EXPECT_EQ(SettingsStore(other).insertionMethod(), InsertionMethod::paste);
}

TEST(SettingsStore, EndpointThatIsNotAUrlLoadsAsTheDefault)
{
    for (const char *stored : {"not a url", "", "ws://exa mple:8765", "ws://host:99999"}) {
        FakePreferenceStore preferences(QVariantMap {{kEndpoint, QString::fromLatin1(stored)}});
        EXPECT_EQ(SettingsStore(preferences).endpointURL(), SettingsStore::defaultEndpoint())
            << stored;
    }
}

// Only the Settings window refuses schemes other than ws and wss; whatever was stored loads.
TEST(SettingsStore, EndpointWithAWebSchemeLoadsAsItIs)
{
    FakePreferenceStore preferences(
        QVariantMap {{kEndpoint, QStringLiteral("http://example.com:8080/x")}});
    EXPECT_EQ(SettingsStore(preferences).endpointURL(), QUrl("http://example.com:8080/x"));
}

TEST(SettingsStore, ValuesOfTheWrongTypeLoadTheirDefaults)
{
    FakePreferenceStore preferences(QVariantMap {
        {kEndpoint, 8765},
        {kTrigger, QStringList {"f5"}},
        {kMode, true},
        {kMethod, 1},
        {kLanguage, QStringList {"en", "hi"}},
        {kDictionary, 42},
        {kFeedback, QStringLiteral("banana")},
        {kLaunch, QStringList {"true"}},
        {kDevice, 3},
    });
    SettingsStore settings(preferences);

    EXPECT_EQ(settings.endpointURL(), SettingsStore::defaultEndpoint());
    EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::fnGlobe);
    EXPECT_EQ(settings.triggerMode(), TriggerMode::holdToTalk);
    EXPECT_EQ(settings.insertionMethod(), InsertionMethod::paste);
    EXPECT_EQ(settings.language(), std::nullopt);
    EXPECT_EQ(settings.personalDictionary(), QStringList {});
    EXPECT_FALSE(settings.feedbackEnabled());
    EXPECT_FALSE(settings.launchAtLogin());
    EXPECT_EQ(settings.inputDeviceUID(), std::nullopt);
}

TEST(SettingsStore, DictionaryWithANonStringEntryLoadsEmpty)
{
    FakePreferenceStore preferences(QVariantMap {{kDictionary, QVariantList {"Priya", 7}}});
    EXPECT_EQ(SettingsStore(preferences).personalDictionary(), QStringList {});
}

TEST(SettingsStore, DefaultEndpointIsTheLocalEngine)
{
    EXPECT_EQ(SettingsStore::defaultEndpoint().toString(), "ws://127.0.0.1:8765");
    EXPECT_EQ(&SettingsStore::defaultEndpoint(), &SettingsStore::defaultEndpoint());
}

TEST(SettingsStore, EverySetterWritesThroughInTheSameCall)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    preferences.clearWrites();

    settings.setEndpointURL(QUrl("ws://192.168.1.5:9001/asr"));
    settings.setHotkeyTrigger(HotkeyTrigger::menuBarToggle);
    settings.setTriggerMode(TriggerMode::toggle);
    settings.setInsertionMethod(InsertionMethod::axDirect);
    settings.setLanguage(QStringLiteral("en"));
    settings.setPersonalDictionary(QStringList {"Sayvo", "WebSocket"});
    settings.setFeedbackEnabled(true);
    settings.setLaunchAtLogin(true);
    settings.setInputDeviceUID(QStringLiteral("alsa_input.usb"));

    const std::vector<Write> expected {
        set(kEndpoint, QStringLiteral("ws://192.168.1.5:9001/asr")),
        set(kTrigger, QStringLiteral("menuBarToggle")),
        set(kMode, QStringLiteral("toggle")),
        set(kMethod, QStringLiteral("axDirect")),
        set(kLanguage, QStringLiteral("en")),
        set(kDictionary, QStringList {"Sayvo", "WebSocket"}),
        set(kFeedback, true),
        set(kLaunch, true),
        set(kDevice, QStringLiteral("alsa_input.usb")),
    };
    EXPECT_EQ(preferences.writes(), expected);
}

TEST(SettingsStore, AssigningAnEqualValueWritesAndPublishesAgain)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    QSignalSpy changed(&settings, &SettingsStore::triggerModeChanged);
    QSignalSpy about(&settings, &SettingsStore::aboutToChange);
    preferences.clearWrites();

    settings.setTriggerMode(TriggerMode::holdToTalk);
    settings.setTriggerMode(TriggerMode::holdToTalk);

    EXPECT_EQ(changed.count(), 2);
    EXPECT_EQ(about.count(), 2);
    EXPECT_EQ(preferences.writesOf(kMode).size(), 2u);
}

TEST(SettingsStore, SettingLanguageToNilRemovesTheKey)
{
    FakePreferenceStore preferences(QVariantMap {{kLanguage, QStringLiteral("en")}});
    SettingsStore settings(preferences);
    preferences.clearWrites();

    settings.setLanguage(std::nullopt);

    EXPECT_FALSE(preferences.contains(kLanguage));
    EXPECT_EQ(preferences.writes(), std::vector<Write> {removal(kLanguage)});
    EXPECT_EQ(settings.language(), std::nullopt);
}

TEST(SettingsStore, EmptyLanguageIsStoredAsAString)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    settings.setLanguage(QString(""));
    EXPECT_EQ(preferences.value(kLanguage), QVariant(QString("")));
    EXPECT_EQ(SettingsStore(preferences).language(), QString(""));
}

TEST(SettingsStore, ChoosingAutomaticMicrophoneRemovesTheDeviceKey)
{
    FakePreferenceStore preferences(QVariantMap {{kDevice, QStringLiteral("usb-mic-1")}});
    SettingsStore settings(preferences);

    settings.setInputDeviceUID(std::nullopt);

    EXPECT_FALSE(preferences.contains(kDevice));
    EXPECT_EQ(settings.inputDeviceUID(), std::nullopt);
}

TEST(SettingsStore, EndpointIsStoredAsItsAbsoluteString)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    settings.setEndpointURL(QUrl("wss://engine.example/path with space"));
    EXPECT_EQ(preferences.value(kEndpoint),
        QVariant(QString("wss://engine.example/path%20with%20space")));
    EXPECT_EQ(
        SettingsStore(preferences).endpointURL(), QUrl("wss://engine.example/path with space"));
}

// The announcement comes before the value changes, so a bound view can capture the old state;
// the property's signal comes after the value is stored and written through.
TEST(SettingsStore, AnnouncesBeforeAndPublishesAfterTheChange)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    std::vector<std::string> events;
    QObject::connect(&settings, &SettingsStore::aboutToChange, [&] {
        events.push_back("about:" + std::string(settings.feedbackEnabled() ? "on" : "off") + ":"
            + std::string(preferences.contains(kFeedback) ? "stored" : "unstored"));
    });
    QObject::connect(&settings, &SettingsStore::feedbackEnabledChanged, [&](bool enabled) {
        events.push_back("changed:" + std::string(enabled ? "on" : "off") + ":"
            + std::string(settings.feedbackEnabled() ? "on" : "off") + ":"
            + preferences.value(kFeedback).value_or(QVariant()).toString().toStdString());
    });

    settings.setFeedbackEnabled(true);

    EXPECT_EQ(events, (std::vector<std::string> {"about:off:unstored", "changed:on:on:true"}));
}

TEST(SettingsStore, EveryPropertyPublishesItsNewValue)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    QSignalSpy endpoint(&settings, &SettingsStore::endpointURLChanged);
    QSignalSpy trigger(&settings, &SettingsStore::hotkeyTriggerChanged);
    QSignalSpy mode(&settings, &SettingsStore::triggerModeChanged);
    QSignalSpy method(&settings, &SettingsStore::insertionMethodChanged);
    QSignalSpy language(&settings, &SettingsStore::languageChanged);
    QSignalSpy dictionary(&settings, &SettingsStore::personalDictionaryChanged);
    QSignalSpy feedback(&settings, &SettingsStore::feedbackEnabledChanged);
    QSignalSpy launch(&settings, &SettingsStore::launchAtLoginChanged);
    QSignalSpy device(&settings, &SettingsStore::inputDeviceUIDChanged);
    QSignalSpy about(&settings, &SettingsStore::aboutToChange);

    settings.setEndpointURL(QUrl("ws://localhost:1"));
    settings.setHotkeyTrigger(HotkeyTrigger::f5);
    settings.setTriggerMode(TriggerMode::toggle);
    settings.setInsertionMethod(InsertionMethod::axDirect);
    settings.setLanguage(QStringLiteral("hi"));
    settings.setPersonalDictionary(QStringList {"x"});
    settings.setFeedbackEnabled(true);
    settings.setLaunchAtLogin(true);
    settings.setInputDeviceUID(QStringLiteral("mic"));

    EXPECT_EQ(about.count(), 9);
    ASSERT_EQ(endpoint.count(), 1);
    EXPECT_EQ(endpoint.at(0).at(0).value<QUrl>(), QUrl("ws://localhost:1"));
    ASSERT_EQ(trigger.count(), 1);
    EXPECT_EQ(trigger.at(0).at(0).value<HotkeyTrigger>(), HotkeyTrigger::f5);
    ASSERT_EQ(mode.count(), 1);
    EXPECT_EQ(mode.at(0).at(0).value<TriggerMode>(), TriggerMode::toggle);
    ASSERT_EQ(method.count(), 1);
    EXPECT_EQ(method.at(0).at(0).value<InsertionMethod>(), InsertionMethod::axDirect);
    ASSERT_EQ(language.count(), 1);
    EXPECT_EQ(language.at(0).at(0).value<std::optional<QString>>(), QStringLiteral("hi"));
    ASSERT_EQ(dictionary.count(), 1);
    EXPECT_EQ(dictionary.at(0).at(0).toStringList(), QStringList {"x"});
    ASSERT_EQ(feedback.count(), 1);
    EXPECT_TRUE(feedback.at(0).at(0).toBool());
    ASSERT_EQ(launch.count(), 1);
    EXPECT_TRUE(launch.at(0).at(0).toBool());
    ASSERT_EQ(device.count(), 1);
    EXPECT_EQ(device.at(0).at(0).value<std::optional<QString>>(), QStringLiteral("mic"));
}

TEST(SettingsStore, PropertiesAreReachableThroughTheMetaObject)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    EXPECT_TRUE(settings.setProperty("launchAtLogin", true));
    EXPECT_TRUE(settings.launchAtLogin());
    EXPECT_EQ(settings.property("endpointURL").toUrl(), SettingsStore::defaultEndpoint());
    EXPECT_EQ(settings.property("hotkeyTrigger").value<HotkeyTrigger>(), HotkeyTrigger::fnGlobe);
}

TEST(SettingsStore, SubscribingDeliversTheCurrentValueFirstThenChanges)
{
    FakePreferenceStore preferences(
        QVariantMap {{kEndpoint, QStringLiteral("ws://10.0.0.9:8765")}});
    SettingsStore settings(preferences);
    QObject context;
    std::vector<QUrl> seen;

    subscribe(&settings, &SettingsStore::endpointURL, &SettingsStore::endpointURLChanged, &context,
        [&](const QUrl &url) { seen.push_back(url); });
    ASSERT_EQ(seen, std::vector<QUrl> {QUrl("ws://10.0.0.9:8765")});

    settings.setEndpointURL(QUrl("ws://10.0.0.9:9000"));
    settings.setEndpointURL(QUrl("ws://10.0.0.9:9000"));
    EXPECT_EQ(seen,
        (std::vector<QUrl> {
            QUrl("ws://10.0.0.9:8765"), QUrl("ws://10.0.0.9:9000"), QUrl("ws://10.0.0.9:9000")}));
}

TEST(SettingsStore, SubscriptionEndsWithItsContext)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    auto context = std::make_unique<QObject>();
    std::vector<HotkeyTrigger> seen;
    subscribe(&settings, &SettingsStore::hotkeyTrigger, &SettingsStore::hotkeyTriggerChanged,
        context.get(), [&](HotkeyTrigger trigger) { seen.push_back(trigger); });
    settings.setHotkeyTrigger(HotkeyTrigger::f5);
    context.reset();
    settings.setHotkeyTrigger(HotkeyTrigger::rightOption);
    EXPECT_EQ(seen, (std::vector<HotkeyTrigger> {HotkeyTrigger::fnGlobe, HotkeyTrigger::f5}));
}

TEST(SettingsStore, ChangeMadeDuringTheFirstDeliveryIsNotMissed)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    QObject context;
    std::vector<bool> seen;
    subscribe(&settings, &SettingsStore::feedbackEnabled, &SettingsStore::feedbackEnabledChanged,
        &context, [&](bool enabled) {
            seen.push_back(enabled);
            if (!enabled) {
                settings.setFeedbackEnabled(true);
            }
        });
    EXPECT_EQ(seen, (std::vector<bool> {false, true}));
}

TEST(SettingsStore, SubscriberStateCarriesFromTheFirstDeliveryToTheNext)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    QObject context;
    std::vector<int> deliveryNumbers;
    subscribe(&settings, &SettingsStore::launchAtLogin, &SettingsStore::launchAtLoginChanged,
        &context,
        [&deliveryNumbers, count = 0](bool) mutable { deliveryNumbers.push_back(++count); });
    settings.setLaunchAtLogin(true);
    settings.setLaunchAtLogin(false);
    EXPECT_EQ(deliveryNumbers, (std::vector<int> {1, 2, 3}));
}

TEST(SettingsStore, AStoreOverTheSamePreferencesSeesEveryAssignment)
{
    FakePreferenceStore preferences;
    {
        SettingsStore settings(preferences);
        settings.setEndpointURL(QUrl("wss://asr.example:443/v1"));
        settings.setHotkeyTrigger(HotkeyTrigger::menuBarToggle);
        settings.setTriggerMode(TriggerMode::toggle);
        settings.setInsertionMethod(InsertionMethod::axDirect);
        settings.setLanguage(QStringLiteral("en"));
        settings.setPersonalDictionary(QStringList {"Priya"});
        settings.setFeedbackEnabled(true);
        settings.setLaunchAtLogin(true);
        settings.setInputDeviceUID(QStringLiteral("usb"));
    }
    SettingsStore reloaded(preferences);
    EXPECT_EQ(reloaded.endpointURL(), QUrl("wss://asr.example:443/v1"));
    EXPECT_EQ(reloaded.hotkeyTrigger(), HotkeyTrigger::menuBarToggle);
    EXPECT_EQ(reloaded.triggerMode(), TriggerMode::toggle);
    EXPECT_EQ(reloaded.insertionMethod(), InsertionMethod::axDirect);
    EXPECT_EQ(reloaded.language(), QStringLiteral("en"));
    EXPECT_EQ(reloaded.personalDictionary(), QStringList {"Priya"});
    EXPECT_TRUE(reloaded.feedbackEnabled());
    EXPECT_TRUE(reloaded.launchAtLogin());
    EXPECT_EQ(reloaded.inputDeviceUID(), QStringLiteral("usb"));
}

// Endpoint validation, as the Settings window applies it before assigning.

TEST(EndpointValidation, SecureSocketWithNumericHostPortAndPathIsValid)
{
    EXPECT_TRUE(SettingsStore::isValidEndpoint("wss://192.168.1.10:9000/engine/v1"));
    EXPECT_TRUE(SettingsStore::isValidEndpoint("ws://127.0.0.1:8765"));
    EXPECT_TRUE(SettingsStore::isValidEndpoint("ws://localhost"));
}

TEST(EndpointValidation, SchemeWithoutHostIsInvalid)
{
    EXPECT_FALSE(SettingsStore::isValidEndpoint("ws:/"));
    EXPECT_FALSE(SettingsStore::isValidEndpoint("ws:/engine"));
    EXPECT_FALSE(SettingsStore::isValidEndpoint("ws://"));
    EXPECT_FALSE(SettingsStore::isValidEndpoint("ws://:8765"));
}

TEST(EndpointValidation, OtherSchemesAreInvalid)
{
    EXPECT_FALSE(SettingsStore::isValidEndpoint("ftp://files.example"));
    EXPECT_FALSE(SettingsStore::isValidEndpoint("http://127.0.0.1:8765"));
    EXPECT_FALSE(SettingsStore::isValidEndpoint("127.0.0.1:8765"));
}

TEST(EndpointValidation, UpperCaseSchemeIsInvalid)
{
    EXPECT_FALSE(SettingsStore::isValidEndpoint("WS://127.0.0.1:8765"));
    EXPECT_FALSE(SettingsStore::isValidEndpoint("WSS://192.168.1.10:9000"));
    EXPECT_FALSE(SettingsStore::isValidEndpoint("Ws://localhost"));
}

TEST(EndpointValidation, TextThatIsNotAUrlIsInvalid)
{
    EXPECT_FALSE(SettingsStore::isValidEndpoint(""));
    EXPECT_FALSE(SettingsStore::isValidEndpoint("not a url"));
    EXPECT_FALSE(SettingsStore::isValidEndpoint(" ws://localhost"));
    EXPECT_FALSE(SettingsStore::isValidEndpoint("ws://exa mple"));
    EXPECT_FALSE(SettingsStore::isValidEndpoint("ws://host:99999"));
}

TEST(EndpointValidation, MessageText)
{
    EXPECT_EQ(SettingsStore::invalidEndpointMessage(), "Enter a valid ws:// or wss:// URL.");
}

// The dictionary editor's add and remove.

TEST(PersonalDictionary, AddingTrimsSpacesAroundTheName)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    EXPECT_TRUE(settings.addDictionaryEntry("  Kubernetes  "));
    EXPECT_EQ(settings.personalDictionary(), QStringList {"Kubernetes"});
    EXPECT_EQ(preferences.value(kDictionary), QVariant(QStringList {"Kubernetes"}));
}

TEST(PersonalDictionary, AddingTheSameNameAgainIsIgnored)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    settings.addDictionaryEntry("  Kubernetes  ");
    preferences.clearWrites();
    QSignalSpy changed(&settings, &SettingsStore::personalDictionaryChanged);

    EXPECT_FALSE(settings.addDictionaryEntry("Kubernetes"));
    EXPECT_FALSE(settings.addDictionaryEntry("\tKubernetes "));

    EXPECT_EQ(settings.personalDictionary(), QStringList {"Kubernetes"});
    EXPECT_TRUE(preferences.writes().empty());
    EXPECT_EQ(changed.count(), 0);
}

TEST(PersonalDictionary, AddingInLowerCaseAddsASecondEntry)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    settings.addDictionaryEntry("  Kubernetes  ");
    EXPECT_TRUE(settings.addDictionaryEntry("kubernetes"));
    EXPECT_EQ(settings.personalDictionary(), (QStringList {"Kubernetes", "kubernetes"}));
}

TEST(PersonalDictionary, AddingBlankTextAddsNothing)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    EXPECT_FALSE(settings.addDictionaryEntry(""));
    EXPECT_FALSE(settings.addDictionaryEntry(" \t  "));
    EXPECT_FALSE(settings.addDictionaryEntry(QString::fromUtf8("\u00a0\u3000")));
    EXPECT_EQ(settings.personalDictionary(), QStringList {});
}

TEST(PersonalDictionary, AddingTrimsTabsAndWideSpacesButNotLineBreaks)
{
    FakePreferenceStore preferences;
    SettingsStore settings(preferences);
    settings.addDictionaryEntry("\tPriya\t");
    settings.addDictionaryEntry(QString::fromUtf8("\u00a0Sayvo\u3000"));
    settings.addDictionaryEntry("Anand\n");
    EXPECT_EQ(settings.personalDictionary(), (QStringList {"Priya", "Sayvo", "Anand\n"}));
}

TEST(PersonalDictionary, AddingKeepsInnerSpacesAndAppendsAtTheEnd)
{
    FakePreferenceStore preferences(QVariantMap {{kDictionary, QStringList {"zeta", "alpha"}}});
    SettingsStore settings(preferences);
    settings.addDictionaryEntry(" New  York ");
    EXPECT_EQ(settings.personalDictionary(), (QStringList {"zeta", "alpha", "New  York"}));
}

TEST(PersonalDictionary, RemovingDropsEveryEqualEntryAndKeepsOrder)
{
    FakePreferenceStore preferences(
        QVariantMap {{kDictionary, QStringList {"a", "Sayvo", "b", "Sayvo", "sayvo"}}});
    SettingsStore settings(preferences);

    settings.removeDictionaryEntry("Sayvo");

    EXPECT_EQ(settings.personalDictionary(), (QStringList {"a", "b", "sayvo"}));
    EXPECT_EQ(preferences.value(kDictionary), QVariant(QStringList {"a", "b", "sayvo"}));
}

TEST(PersonalDictionary, RemovingAnAbsentTermStillWritesTheArray)
{
    FakePreferenceStore preferences(QVariantMap {{kDictionary, QStringList {"a"}}});
    SettingsStore settings(preferences);
    preferences.clearWrites();

    settings.removeDictionaryEntry("A");

    EXPECT_EQ(settings.personalDictionary(), QStringList {"a"});
    EXPECT_EQ(preferences.writes(), std::vector<Write> {set(kDictionary, QStringList {"a"})});
}

} // namespace
} // namespace sayvo
