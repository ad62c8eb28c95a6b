#include "engine/asr/ReplayRecognizer.h"

#include <fstream>
#include <sstream>

namespace sayvo {

namespace {

constexpr std::size_t kSamplesPerWord = 1600; // 100 ms at 16 kHz

class ReplayRecognizer : public Recognizer
{
public:
    explicit ReplayRecognizer(const std::string &text)
    {
        std::istringstream stream(text);
        for (std::string word; stream >> word;) {
            m_words.push_back(word);
        }
    }

    void feed(std::span<const std::int16_t> samples) override { m_samples += samples.size(); }

    std::string partialText() override { return firstWords(m_samples / kSamplesPerWord); }

    std::string finish() override { return firstWords(m_words.size()); }

private:
    std::string firstWords(std::size_t count) const
    {
        std::string out;
        for (std::size_t i = 0; i < count && i < m_words.size(); ++i) {
            out += (i == 0 ? "" : " ") + m_words[i];
        }
        return out;
    }

    std::vector<std::string> m_words;
    std::size_t m_samples = 0;
};

class SilentRecognizer : public Recognizer
{
public:
    void feed(std::span<const std::int16_t>) override { }
    std::string partialText() override { return {}; }
    std::string finish() override { return {}; }
};

} // namespace

Expected<std::unique_ptr<ReplayRecognizerFactory>, std::string> ReplayRecognizerFactory::load(
    const std::string &path)
{
    using Result = Expected<std::unique_ptr<ReplayRecognizerFactory>, std::string>;
    std::ifstream file(path);
    if (!file) {
        return Result::failure("cannot read replay file " + path);
    }
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        lines.push_back(line);
    }
    if (lines.empty()) {
        return Result::failure("replay file " + path + " has no lines");
    }
    return std::make_unique<ReplayRecognizerFactory>(std::move(lines));
}

ReplayRecognizerFactory::ReplayRecognizerFactory(std::vector<std::string> lines)
    : m_lines(std::move(lines))
{ }

Backends ReplayRecognizerFactory::backends() const
{
    return Backends {"replay", "replay", "sayvo-rules"};
}

std::unique_ptr<Recognizer> ReplayRecognizerFactory::create()
{
    const std::string &line = m_lines[m_next++ % m_lines.size()];
    return std::make_unique<ReplayRecognizer>(line);
}

Backends MockRecognizerFactory::backends() const
{
    return Backends {"mock", "mock", "mock"};
}

std::unique_ptr<Recognizer> MockRecognizerFactory::create()
{
    return std::make_unique<SilentRecognizer>();
}

} // namespace sayvo
