#include "engine/asr/PocketSphinxRecognizer.h"

#include <pocketsphinx.h>

#include <filesystem>
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

struct DecoderPool
{
    static constexpr std::size_t kMaxIdle = 2;

    std::string modelDir;
    std::vector<std::unique_ptr<Decoder>> idle;

    std::unique_ptr<Decoder> load(std::string &error) const
    {
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
        auto d = std::make_unique<Decoder>();
        d->config = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.c_str(), "-lm", lm.c_str(),
            "-dict", dict.c_str(), "-logfn", "/dev/null", nullptr);
        if (!d->config) {
            error = "pocketsphinx rejected its configuration for " + modelDir;
            return nullptr;
        }
        d->decoder = ps_init(d->config);
        if (!d->decoder) {
            error = "pocketsphinx could not load the model in " + modelDir;
            return nullptr;
        }
        return d;
    }
};

namespace {

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
        // Keep a couple of warm decoders for the next utterances; more would only hold
        // memory after a burst of concurrent sessions.
        if (m_pool->idle.size() < DecoderPool::kMaxIdle) {
            m_pool->idle.push_back(std::move(m_decoder));
        }
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
PocketSphinxRecognizerFactory::load(const std::string &modelDir)
{
    using Result = Expected<std::unique_ptr<PocketSphinxRecognizerFactory>, std::string>;
    auto pool = std::make_shared<DecoderPool>();
    pool->modelDir = modelDir;
    std::string error;
    auto first = pool->load(error);
    if (!first) {
        return Result::failure(error);
    }
    pool->idle.push_back(std::move(first));
    return std::unique_ptr<PocketSphinxRecognizerFactory>(new PocketSphinxRecognizerFactory(pool));
}

PocketSphinxRecognizerFactory::PocketSphinxRecognizerFactory(std::shared_ptr<DecoderPool> pool)
    : m_pool(std::move(pool))
{ }

PocketSphinxRecognizerFactory::~PocketSphinxRecognizerFactory() = default;

Backends PocketSphinxRecognizerFactory::backends() const
{
    return Backends {"pocketsphinx-en-us", "pocketsphinx-en-us-fwdflat", "sayvo-rules"};
}

std::unique_ptr<Recognizer> PocketSphinxRecognizerFactory::create()
{
    std::unique_ptr<Decoder> decoder;
    if (!m_pool->idle.empty()) {
        decoder = std::move(m_pool->idle.back());
        m_pool->idle.pop_back();
    } else {
        std::string error;
        decoder = m_pool->load(error);
        if (!decoder) {
            return nullptr;
        }
    }
    return std::make_unique<PocketSphinxRecognizer>(m_pool, std::move(decoder));
}

} // namespace sayvo
