#pragma once

#include <QString>

#include <functional>
#include <optional>
#include <utility>

namespace sayvo {

struct FrontApplication
{
    std::optional<QString> bundleId;
    std::optional<QString> name;
    // 0 where the platform does not say (Wayland).
    qint64 pid = 0;
    // The title of its window in front, where the platform reports it with the application
    // (Wayland toplevels); elsewhere it is read from the window or through accessibility.
    std::optional<QString> windowTitle = std::nullopt;

    bool operator==(const FrontApplication &) const = default;
};

// The application in front (on X11: the owner of the active window). Main thread only.
class Workspace
{
public:
    virtual ~Workspace() = default;

    virtual std::optional<FrontApplication> frontmostApplication() = 0;
    // Runs the handler whenever another window comes to the front, where the platform
    // announces it; X11 and macOS adapters never call it.
    void setOnActivation(std::function<void()> handler)
    {
        m_onActivation = std::move(handler);
        watchActivations();
    }

protected:
    // Called once a handler is set: an adapter told of activations only on request asks here.
    virtual void watchActivations() { }
    // Another window came to the front.
    void announceActivation() const
    {
        if (m_onActivation) {
            m_onActivation();
        }
    }

private:
    std::function<void()> m_onActivation;
};

// The application in front in a session that does not say which one it is.
class NoWorkspace : public Workspace
{
public:
    std::optional<FrontApplication> frontmostApplication() override { return std::nullopt; }
};

} // namespace sayvo
