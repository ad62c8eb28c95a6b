#pragma once

#include "store/HotkeyTrigger.h"
#include "store/InsertionMethod.h"
#include "store/TriggerMode.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>
#include <vector>

namespace sayvo {

class PreferenceStore;

// The user's preferences, each persisted under its own "sayvo.*" key. Created once at start-up
// over the standard preference store and shared by reference; the only reader and writer of
// these keys. Main thread only.
//
// Every assignment, even of an equal value, announces aboutToChange(), stores the value,
// writes it through to the preference store and then emits the property's signal, all within
// the setter. Loading never fails: an absent, unreadable or unknown value loads the default.
// subscribe() (Subscribe.h) gives a property's current value first and then every change.
class SettingsStore : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QUrl endpointURL READ endpointURL WRITE setEndpointURL NOTIFY endpointURLChanged)
    Q_PROPERTY(sayvo::HotkeyTrigger hotkeyTrigger READ hotkeyTrigger WRITE setHotkeyTrigger NOTIFY
            hotkeyTriggerChanged)
    Q_PROPERTY(sayvo::TriggerMode triggerMode READ triggerMode WRITE setTriggerMode NOTIFY
            triggerModeChanged)
    Q_PROPERTY(sayvo::InsertionMethod insertionMethod READ insertionMethod WRITE setInsertionMethod
            NOTIFY insertionMethodChanged)
    Q_PROPERTY(
        std::optional<QString> language READ language WRITE setLanguage NOTIFY languageChanged)
    Q_PROPERTY(QStringList personalDictionary READ personalDictionary WRITE setPersonalDictionary
            NOTIFY personalDictionaryChanged)
    Q_PROPERTY(bool feedbackEnabled READ feedbackEnabled WRITE setFeedbackEnabled NOTIFY
            feedbackEnabledChanged)
    Q_PROPERTY(
        bool launchAtLogin READ launchAtLogin WRITE setLaunchAtLogin NOTIFY launchAtLoginChanged)
    Q_PROPERTY(std::optional<QString> inputDeviceUID READ inputDeviceUID WRITE setInputDeviceUID
            NOTIFY inputDeviceUIDChanged)

public:
    static constexpr const char *kEndpointURLKey = "sayvo.endpointURL";
    static constexpr const char *kHotkeyTriggerKey = "sayvo.hotkeyTrigger";
    static constexpr const char *kTriggerModeKey = "sayvo.triggerMode";
    static constexpr const char *kInsertionMethodKey = "sayvo.insertionMethod";
    static constexpr const char *kLanguageKey = "sayvo.language";
    static constexpr const char *kPersonalDictionaryKey = "sayvo.personalDictionary";
    static constexpr const char *kFeedbackEnabledKey = "sayvo.feedbackEnabled";
    static constexpr const char *kLaunchAtLoginKey = "sayvo.launchAtLogin";
    static constexpr const char *kInputDeviceUIDKey = "sayvo.inputDeviceUID";
    static constexpr const char *kKeystrokeRestoreTokenKey = "sayvo.keystrokeRestoreToken";

    // Reads every key once. `preferences` must outlive the store.
    explicit SettingsStore(PreferenceStore &preferences, QObject *parent = nullptr);

    // The local engine's address, "ws://127.0.0.1:8765".
    static const QUrl &defaultEndpoint();

    // Whether text typed as an engine endpoint may be assigned to endpointURL: it parses as a
    // URL with a host, and its scheme is exactly "ws" or "wss" as typed (an upper-case scheme
    // is refused). The store itself accepts any URL; the Settings window checks first.
    static bool isValidEndpoint(const QString &text);
    // What the endpoint field shows while its text is invalid.
    static QString invalidEndpointMessage();

    QUrl endpointURL() const { return m_endpointURL; }
    HotkeyTrigger hotkeyTrigger() const { return m_hotkeyTrigger; }
    TriggerMode triggerMode() const { return m_triggerMode; }
    InsertionMethod insertionMethod() const { return m_insertionMethod; }
    // nullopt leaves the choice to the engine.
    std::optional<QString> language() const { return m_language; }
    QStringList personalDictionary() const { return m_personalDictionary; }
    bool feedbackEnabled() const { return m_feedbackEnabled; }
    // Only remembered and shown; nothing registers a login item from it.
    bool launchAtLogin() const { return m_launchAtLogin; }
    // nullopt follows the system's default input.
    std::optional<QString> inputDeviceUID() const { return m_inputDeviceUID; }

    void setEndpointURL(const QUrl &url);
    void setHotkeyTrigger(HotkeyTrigger trigger);
    void setTriggerMode(TriggerMode mode);
    void setInsertionMethod(InsertionMethod method);
    void setLanguage(const std::optional<QString> &language);
    void setPersonalDictionary(const QStringList &dictionary);
    void setFeedbackEnabled(bool enabled);
    void setLaunchAtLogin(bool enabled);
    void setInputDeviceUID(const std::optional<QString> &uid);

    // The desktop's token for the keystroke permission it granted (remote-desktop portal), so
    // that its dialog is not shown again at the next launch. Not shown to the user.
    std::optional<QString> keystrokeRestoreToken() const { return m_keystrokeRestoreToken; }
    void setKeystrokeRestoreToken(const std::optional<QString> &token);

    // The dictionary editor's add: trims spaces and tabs (not line breaks) from both ends and
    // appends the result unless it is empty or already present (exact, case-sensitive match).
    // Returns whether it was added; nothing is assigned when it was not.
    bool addDictionaryEntry(const QString &typed);
    // The dictionary editor's remove: drops every entry equal to `term`, keeps the order of the
    // rest, and assigns the result even when nothing matched.
    void removeDictionaryEntry(const QString &term);

signals:
    // Emitted at the start of every assignment, before the value changes.
    void aboutToChange();
    void endpointURLChanged(const QUrl &url);
    void hotkeyTriggerChanged(sayvo::HotkeyTrigger trigger);
    void triggerModeChanged(sayvo::TriggerMode mode);
    void insertionMethodChanged(sayvo::InsertionMethod method);
    void languageChanged(const std::optional<QString> &language);
    void personalDictionaryChanged(const QStringList &dictionary);
    void feedbackEnabledChanged(bool enabled);
    void launchAtLoginChanged(bool enabled);
    void inputDeviceUIDChanged(const std::optional<QString> &uid);

private:
    void writeOptionalString(const char *key, const std::optional<QString> &value);

    PreferenceStore &m_preferences;
    QUrl m_endpointURL;
    HotkeyTrigger m_hotkeyTrigger = HotkeyTrigger::fnGlobe;
    TriggerMode m_triggerMode = TriggerMode::holdToTalk;
    InsertionMethod m_insertionMethod = InsertionMethod::paste;
    std::optional<QString> m_language;
    QStringList m_personalDictionary;
    bool m_feedbackEnabled = false;
    bool m_launchAtLogin = false;
    std::optional<QString> m_inputDeviceUID;
    std::optional<QString> m_keystrokeRestoreToken;
};

// One entry of the language choice offered to the user: its label and the value `language`
// takes (nullopt for the engine's own default).
struct LanguageChoice
{
    QString label;
    std::optional<QString> value;

    bool operator==(const LanguageChoice &) const = default;
};

// The languages offered, in order: "Engine default", then those the bundled engine of this
// platform recognises (defined per platform).
const std::vector<LanguageChoice> &languageChoices();
// What the user should know about the languages offered, if anything (defined per platform).
std::optional<QString> languageNote();

} // namespace sayvo
