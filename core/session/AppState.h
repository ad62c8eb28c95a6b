#pragma once

#include <QMetaType>
#include <QString>

#include <variant>

namespace sayvo {

// The dictation state the tray and the heads-up display show. Only the session
// coordinator changes it; every case but idle, listening and processing is shown for a
// fixed time and then returns to idle.
struct AppState
{
    struct Listening
    {
        QString partialText; // the latest partial transcript, "" at the start
        bool operator==(const Listening &) const = default;
    };
    struct Success
    {
        QString formattedText;
        bool wasRaw = false; // the engine's correction was not applied
        bool operator==(const Success &) const = default;
    };
    struct Error
    {
        QString message;
        bool operator==(const Error &) const = default;
    };
    struct Idle
    {
        bool operator==(const Idle &) const = default;
    };
    struct Processing
    {
        bool operator==(const Processing &) const = default;
    };
    struct EmptyTranscript
    {
        bool operator==(const EmptyTranscript &) const = default;
    };

    std::variant<Listening, Success, Error, Idle, Processing, EmptyTranscript> value = Idle {};

    static AppState listening(QString partialText = {})
    {
        return {Listening {std::move(partialText)}};
    }
    static AppState success(QString formattedText, bool wasRaw)
    {
        return {Success {std::move(formattedText), wasRaw}};
    }
    static AppState error(QString message) { return {Error {std::move(message)}}; }
    static AppState idle() { return {Idle {}}; }
    static AppState processing() { return {Processing {}}; }
    static AppState emptyTranscript() { return {EmptyTranscript {}}; }

    template <typename Case> bool is() const { return std::holds_alternative<Case>(value); }
    template <typename Case> const Case *as() const { return std::get_if<Case>(&value); }

    bool operator==(const AppState &) const = default;
};

// For the log: the case, and the length of any dictated text instead of the text itself.
QString describe(const AppState &state);

} // namespace sayvo

Q_DECLARE_METATYPE(sayvo::AppState)
