#pragma once

#include "base/Expected.h"
#include "engine/asr/Recognizer.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace sayvo {

// Deterministic recognition for tests: the n-th utterance of the engine's life is given
// line n of a text file (cycling), revealed one word per 100 ms of audio received.
class ReplayRecognizerFactory : public RecognizerFactory
{
public:
    static Expected<std::unique_ptr<ReplayRecognizerFactory>, std::string> load(
        const std::string &path);
    explicit ReplayRecognizerFactory(std::vector<std::string> lines);

    Backends backends() const override;
    std::unique_ptr<Recognizer> create() override;

private:
    std::vector<std::string> m_lines;
    std::atomic<std::size_t> m_next = 0;
};

// The placeholder an engine runs when it has no real recogniser: it hears nothing, and
// its backend names say "mock" so that clients refuse it.
class MockRecognizerFactory : public RecognizerFactory
{
public:
    Backends backends() const override;
    std::unique_ptr<Recognizer> create() override;
};

} // namespace sayvo
