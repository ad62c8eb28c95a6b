#include "session/AppState.h"
#include "session/EngineConnectionHealth.h"

namespace sayvo {

QString describe(const AppState &state)
{
    // What the user said never goes into a description: it ends up in the journal.
    if (const auto *s = state.as<AppState::Listening>()) {
        return QStringLiteral("listening(chars=%1)").arg(s->partialText.size());
    }
    if (const auto *s = state.as<AppState::Success>()) {
        return QStringLiteral("success(chars=%1, raw=%2)")
            .arg(s->formattedText.size())
            .arg(s->wasRaw ? QStringLiteral("yes") : QStringLiteral("no"));
    }
    if (const auto *s = state.as<AppState::Error>()) {
        return QStringLiteral("error(\"%1\")").arg(s->message);
    }
    if (state.is<AppState::Processing>()) {
        return QStringLiteral("processing");
    }
    if (state.is<AppState::EmptyTranscript>()) {
        return QStringLiteral("emptyTranscript");
    }
    return QStringLiteral("idle");
}

EngineConnectionHealth EngineConnectionHealth::from(const ConnectionState &state)
{
    if (const auto *connected = state.as<ConnectionState::Connected>()) {
        return EngineConnectionHealth::connected(connected->backends.isMock());
    }
    if (state.is<ConnectionState::Connecting>()) {
        return EngineConnectionHealth::connecting();
    }
    if (state.is<ConnectionState::Failed>()) {
        return EngineConnectionHealth::offline();
    }
    return EngineConnectionHealth::idle();
}

} // namespace sayvo
