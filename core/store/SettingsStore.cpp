#include "store/SettingsStore.h"

#include "store/PreferenceStore.h"
#include "store/PreferenceValues.h"

namespace sayvo {

namespace {

QString keyString(const char *key)
{
    return QString::fromLatin1(key);
}

// A string counts as a URL when Qt parses it strictly; text with spaces or a broken host or
// port does not.
std::optional<QUrl> parsedUrl(const QString &text)
{
    if (text.isEmpty()) {
        return std::nullopt;
    }
    QUrl url(text, QUrl::StrictMode);
    if (!url.isValid()) {
        return std::nullopt;
    }
    return url;
}

// Spaces and tabs, but not line breaks, are trimmed from dictionary entries.
bool isTrimmedSpace(QChar character)
{
    return character == QLatin1Char('\t') || character.category() == QChar::Separator_Space;
}

QString trimmedSpacesAndTabs(const QString &text)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isTrimmedSpace(text.at(begin))) {
        ++begin;
    }
    while (end > begin && isTrimmedSpace(text.at(end - 1))) {
        --end;
    }
    return text.mid(begin, end - begin);
}

} // namespace

SettingsStore::SettingsStore(PreferenceStore &preferences, QObject *parent)
    : QObject(parent), m_preferences(preferences)
{
    const std::optional<QString> endpoint = readString(m_preferences, keyString(kEndpointURLKey));
    m_endpointURL = endpoint ? parsedUrl(*endpoint).value_or(defaultEndpoint()) : defaultEndpoint();

    const std::optional<QString> trigger = readString(m_preferences, keyString(kHotkeyTriggerKey));
    m_hotkeyTrigger = trigger ? hotkeyTriggerFromRaw(*trigger).value_or(HotkeyTrigger::fnGlobe)
                              : HotkeyTrigger::fnGlobe;

    const std::optional<QString> mode = readString(m_preferences, keyString(kTriggerModeKey));
    m_triggerMode = mode ? triggerModeFromRaw(*mode).value_or(TriggerMode::holdToTalk)
                         : TriggerMode::holdToTalk;

    const std::optional<QString> method = readString(m_preferences, keyString(kInsertionMethodKey));
    m_insertionMethod = method ? insertionMethodFromRaw(*method).value_or(InsertionMethod::paste)
                               : InsertionMethod::paste;

    m_language = readString(m_preferences, keyString(kLanguageKey));
    m_personalDictionary
        = readStringList(m_preferences, keyString(kPersonalDictionaryKey)).value_or(QStringList {});
    m_feedbackEnabled = readBool(m_preferences, keyString(kFeedbackEnabledKey));
    m_launchAtLogin = readBool(m_preferences, keyString(kLaunchAtLoginKey));

    // The device key is written back at once, so a value that could not be read as a string
    // is removed rather than left behind for the next launch to trip over.
    m_inputDeviceUID = readString(m_preferences, keyString(kInputDeviceUIDKey));
    writeOptionalString(kInputDeviceUIDKey, m_inputDeviceUID);
    m_keystrokeRestoreToken = readString(m_preferences, keyString(kKeystrokeRestoreTokenKey));
}

void SettingsStore::setKeystrokeRestoreToken(const std::optional<QString> &token)
{
    m_keystrokeRestoreToken = token;
    writeOptionalString(kKeystrokeRestoreTokenKey, token);
}

const QUrl &SettingsStore::defaultEndpoint()
{
    static const QUrl endpoint(QStringLiteral("ws://127.0.0.1:8765"));
    return endpoint;
}

bool SettingsStore::isValidEndpoint(const QString &text)
{
    const std::optional<QUrl> url = parsedUrl(text);
    if (!url || url->scheme().isEmpty() || url->host().isEmpty()) {
        return false;
    }
    // QUrl lower-cases the scheme it reports, so the scheme is checked as it was typed.
    const QString typedScheme = text.left(text.indexOf(QLatin1Char(':')));
    return typedScheme == QLatin1String("ws") || typedScheme == QLatin1String("wss");
}

QString SettingsStore::invalidEndpointMessage()
{
    return QStringLiteral("Enter a valid ws:// or wss:// URL.");
}

void SettingsStore::setEndpointURL(const QUrl &url)
{
    emit aboutToChange();
    m_endpointURL = url;
    m_preferences.setValue(keyString(kEndpointURLKey), url.toString(QUrl::FullyEncoded));
    emit endpointURLChanged(m_endpointURL);
}

void SettingsStore::setHotkeyTrigger(HotkeyTrigger trigger)
{
    emit aboutToChange();
    m_hotkeyTrigger = trigger;
    m_preferences.setValue(keyString(kHotkeyTriggerKey), rawValue(trigger));
    emit hotkeyTriggerChanged(m_hotkeyTrigger);
}

void SettingsStore::setTriggerMode(TriggerMode mode)
{
    emit aboutToChange();
    m_triggerMode = mode;
    m_preferences.setValue(keyString(kTriggerModeKey), rawValue(mode));
    emit triggerModeChanged(m_triggerMode);
}

void SettingsStore::setInsertionMethod(InsertionMethod method)
{
    emit aboutToChange();
    m_insertionMethod = method;
    m_preferences.setValue(keyString(kInsertionMethodKey), rawValue(method));
    emit insertionMethodChanged(m_insertionMethod);
}

void SettingsStore::setLanguage(const std::optional<QString> &language)
{
    emit aboutToChange();
    m_language = language;
    writeOptionalString(kLanguageKey, m_language);
    emit languageChanged(m_language);
}

void SettingsStore::setPersonalDictionary(const QStringList &dictionary)
{
    emit aboutToChange();
    m_personalDictionary = dictionary;
    m_preferences.setValue(keyString(kPersonalDictionaryKey), m_personalDictionary);
    emit personalDictionaryChanged(m_personalDictionary);
}

void SettingsStore::setFeedbackEnabled(bool enabled)
{
    emit aboutToChange();
    m_feedbackEnabled = enabled;
    m_preferences.setValue(keyString(kFeedbackEnabledKey), enabled);
    emit feedbackEnabledChanged(m_feedbackEnabled);
}

void SettingsStore::setLaunchAtLogin(bool enabled)
{
    emit aboutToChange();
    m_launchAtLogin = enabled;
    m_preferences.setValue(keyString(kLaunchAtLoginKey), enabled);
    emit launchAtLoginChanged(m_launchAtLogin);
}

void SettingsStore::setInputDeviceUID(const std::optional<QString> &uid)
{
    emit aboutToChange();
    m_inputDeviceUID = uid;
    writeOptionalString(kInputDeviceUIDKey, m_inputDeviceUID);
    emit inputDeviceUIDChanged(m_inputDeviceUID);
}

bool SettingsStore::addDictionaryEntry(const QString &typed)
{
    const QString entry = trimmedSpacesAndTabs(typed);
    if (entry.isEmpty() || m_personalDictionary.contains(entry, Qt::CaseSensitive)) {
        return false;
    }
    setPersonalDictionary(m_personalDictionary + QStringList {entry});
    return true;
}

void SettingsStore::removeDictionaryEntry(const QString &term)
{
    QStringList remaining = m_personalDictionary;
    remaining.removeAll(term);
    setPersonalDictionary(remaining);
}

void SettingsStore::writeOptionalString(const char *key, const std::optional<QString> &value)
{
    if (value) {
        m_preferences.setValue(keyString(key), *value);
    } else {
        m_preferences.remove(keyString(key));
    }
}

} // namespace sayvo
