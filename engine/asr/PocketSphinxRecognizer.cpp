#include "engine/asr/PocketSphinxRecognizer.h"

#include "engine/asr/WarmUpSpeech.h"

#include <pocketsphinx.h>
#include <sphinxbase/cmn.h>
#include <sphinxbase/err.h>
#include <sphinxbase/feat.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <vector>

#ifndef SAYVO_POCKETSPHINX_MODEL_DIR
#define SAYVO_POCKETSPHINX_MODEL_DIR "/usr/share/pocketsphinx/model/en-us"
#endif

namespace sayvo {

struct Decoder
{
    cmd_ln_t *config = nullptr;
    ps_decoder_t *decoder = nullptr;

    ~Decoder()
    {
        if (decoder) {
            ps_free(decoder);
        }
        if (config) {
            cmd_ln_free_r(config);
        }
    }
};

// PocketSphinx reports through one process-wide callback. While a model loads its errors
// are kept, to say which file was at fault; everything else is dropped. Loads run one at a
// time.
class LoadErrors
{
public:
    explicit LoadErrors(std::vector<std::string> &into)
    {
        static std::once_flag installed;
        std::call_once(installed, [] { err_set_callback(&LoadErrors::report, nullptr); });
        const std::lock_guard lock(s_mutex);
        s_errors = &into;
    }
    ~LoadErrors()
    {
        const std::lock_guard lock(s_mutex);
        s_errors = nullptr;
    }
    LoadErrors(const LoadErrors &) = delete;
    LoadErrors &operator=(const LoadErrors &) = delete;

    // The message without its source-file prefix ("ERROR: \"bio.c\", line 240: ") and
    // without its line feed.
    static std::string message(std::string line)
    {
        const std::size_t at = line.find("\", line ");
        if (at != std::string::npos) {
            const std::size_t colon = line.find(": ", at);
            if (colon != std::string::npos) {
                line.erase(0, colon + 2);
            }
        }
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
            line.pop_back();
        }
        return line;
    }

private:
    static void report(void *, err_lvl_t level, const char *format, ...)
    {
        if (level < ERR_ERROR) {
            return;
        }
        char line[1024];
        va_list args;
        va_start(args, format);
        std::vsnprintf(line, sizeof line, format, args);
        va_end(args);
        const std::lock_guard lock(s_mutex);
        if (s_errors) {
            s_errors->push_back(message(line));
        }
    }

    static inline std::mutex s_mutex;
    static inline std::vector<std::string> *s_errors = nullptr;
};

// Warm decoders for the next utterances, shared by the workers.
struct DecoderPool
{
    static constexpr std::size_t kMaxIdle = 2;

    std::string modelDir;
    FinalPass finalPass = FinalPass::bestPath;
    std::mutex mutex;
    std::vector<std::unique_ptr<Decoder>> idle; // guarded by `mutex`

    std::unique_ptr<Decoder> take()
    {
        const std::lock_guard lock(mutex);
        if (idle.empty()) {
            return nullptr;
        }
        std::unique_ptr<Decoder> decoder = std::move(idle.back());
        idle.pop_back();
        return decoder;
    }

    // Keeps a couple of warm decoders; more would only hold memory after a burst of
    // concurrent utterances.
    void giveBack(std::unique_ptr<Decoder> decoder)
    {
        const std::lock_guard lock(mutex);
        if (idle.size() < kMaxIdle) {
            idle.push_back(std::move(decoder));
        }
    }

    // On failure `error` names the file at fault when PocketSphinx said which.
    std::unique_ptr<Decoder> load(std::string &error) const
    {
        static std::mutex loading;
        const std::lock_guard lock(loading);
        namespace fs = std::filesystem;
        const fs::path root(modelDir);
        const std::string hmm = (root / "en-us").string();
        const std::string lm = (root / "en-us.lm.bin").string();
        const std::string dict = (root / "cmudict-en-us.dict").string();
        for (const std::string &path : {hmm, lm, dict}) {
            std::error_code ec;
            if (!fs::exists(path, ec)) {
                error = "speech model missing: " + path;
                return nullptr;
            }
        }
        std::vector<std::string> errors;
        const LoadErrors capture(errors);
        auto d = std::make_unique<Decoder>();
        if (finalPass == FinalPass::flatRedecode) {
            d->config = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.c_str(), "-lm",
                lm.c_str(), "-dict", dict.c_str(), nullptr);
        } else {
            // No flat second search. Pruning to 3000 active HMMs a frame (default 30000)
            // only drops paths that never win: the same words on a festival test set, a
            // quarter less work while streaming.
            d->config = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.c_str(), "-lm",
                lm.c_str(), "-dict", dict.c_str(), "-fwdflat", "no", "-bestpath", "yes",
                "-maxhmmpf", "3000", nullptr);
        }
        if (d->config) {
            d->decoder = ps_init(d->config);
        }
        if (d->decoder) {
            return d;
        }
        error = "cannot load the speech model in " + modelDir;
        const auto naming = std::find_if(errors.begin(), errors.end(),
            [this](const std::string &e) { return e.find(modelDir) != std::string::npos; });
        if (naming != errors.end()) {
            error = "cannot load the speech model: " + *naming;
        } else if (!errors.empty()) {
            error += ": " + errors.front();
        }
        return nullptr;
    }
};

namespace {

// Two seconds of speech-like sound take the search's tables most of the way to their size
// for dictation (about 0.7 MB short of it over the next sentences, against 5 MB without)
// for about a third of a second of one core at start-up; longer costs more than it saves.
constexpr std::chrono::milliseconds kWarmUpLength {2000};

// A decoder's search tables grow to their working size over its first utterances, and the
// model's weights are paged in on first use: one pass over speech-like sound at start-up
// has both happen before the engine reports ready rather than in the user's first
// dictations. The cepstral mean that sound leaves behind is put back, so that the first
// utterance is normalised from the model's own starting point.
void warmUp(Decoder &d)
{
    cmn_t *cmn = ps_get_feat(d.decoder)->cmn_struct;
    std::vector<mfcc_t> mean(static_cast<std::size_t>(cmn->veclen));
    cmn_live_get(cmn, mean.data());
    const std::vector<std::int16_t> speech = synthesizeWarmUpSpeech(kWarmUpLength);
    if (ps_start_utt(d.decoder) >= 0) {
        // In the pieces a client's audio comes in.
        constexpr std::size_t kPiece = 1600;
        for (std::size_t at = 0; at < speech.size(); at += kPiece) {
            ps_process_raw(
                d.decoder, speech.data() + at, std::min(kPiece, speech.size() - at), FALSE, FALSE);
        }
        ps_end_utt(d.decoder);
        // The final's lattice is built when the hypothesis is asked for.
        int32 score = 0;
        ps_get_hyp(d.decoder, &score);
    }
    cmn_live_set(cmn, mean.data());
}

class PocketSphinxRecognizer : public Recognizer
{
public:
    PocketSphinxRecognizer(std::shared_ptr<DecoderPool> pool, std::unique_ptr<Decoder> decoder)
        : m_pool(std::move(pool)), m_decoder(std::move(decoder))
    {
        m_started = ps_start_utt(m_decoder->decoder) >= 0;
    }

    ~PocketSphinxRecognizer() override
    {
        if (m_started) {
            ps_end_utt(m_decoder->decoder);
        }
        m_pool->giveBack(std::move(m_decoder));
    }

    void feed(std::span<const std::int16_t> samples) override
    {
        if (m_started && !samples.empty()) {
            ps_process_raw(m_decoder->decoder, samples.data(), samples.size(), FALSE, FALSE);
        }
    }

    std::string partialText() override { return hypothesis(); }

    std::string finish() override
    {
        if (m_started) {
            ps_end_utt(m_decoder->decoder);
            m_started = false;
        }
        return hypothesis();
    }

private:
    std::string hypothesis() const
    {
        int32 score = 0;
        const char *text = ps_get_hyp(m_decoder->decoder, &score);
        return text ? std::string(text) : std::string();
    }

    std::shared_ptr<DecoderPool> m_pool;
    std::unique_ptr<Decoder> m_decoder;
    bool m_started = false;
};

} // namespace

std::string PocketSphinxRecognizerFactory::defaultModelDir()
{
    return SAYVO_POCKETSPHINX_MODEL_DIR;
}

Expected<std::unique_ptr<PocketSphinxRecognizerFactory>, std::string>
PocketSphinxRecognizerFactory::load(const std::string &modelDir, FinalPass finalPass)
{
    using Result = Expected<std::unique_ptr<PocketSphinxRecognizerFactory>, std::string>;
    auto pool = std::make_shared<DecoderPool>();
    pool->modelDir = modelDir;
    pool->finalPass = finalPass;
    std::string error;
    auto first = pool->load(error);
    if (!first) {
        return Result::failure(error);
    }
    warmUp(*first);
    pool->idle.push_back(std::move(first));
    return std::unique_ptr<PocketSphinxRecognizerFactory>(new PocketSphinxRecognizerFactory(pool));
}

PocketSphinxRecognizerFactory::PocketSphinxRecognizerFactory(std::shared_ptr<DecoderPool> pool)
    : m_pool(std::move(pool))
{ }

PocketSphinxRecognizerFactory::~PocketSphinxRecognizerFactory() = default;

Backends PocketSphinxRecognizerFactory::backends() const
{
    const char *finalPass = m_pool->finalPass == FinalPass::flatRedecode
        ? "pocketsphinx-en-us-fwdflat"
        : "pocketsphinx-en-us-bestpath";
    return Backends {"pocketsphinx-en-us", finalPass, "sayvo-rules"};
}

std::unique_ptr<Recognizer> PocketSphinxRecognizerFactory::create()
{
    std::unique_ptr<Decoder> decoder = m_pool->take();
    if (!decoder) {
        std::string error;
        decoder = m_pool->load(error);
        if (!decoder) {
            return nullptr;
        }
    }
    return std::make_unique<PocketSphinxRecognizer>(m_pool, std::move(decoder));
}

} // namespace sayvo
