#pragma once

#include "base/Expected.h"
#include "engine/asr/Recognizer.h"

#include <memory>
#include <string>

namespace sayvo {

struct DecoderPool;

// How the final hypothesis is made once the audio has ended.
enum class FinalPass {
    // The best path through the lattice the streaming (tree) search built while the audio
    // came, with the active HMMs capped: the end only has the last frames and the lattice
    // left.
    bestPath,
    // PocketSphinx's defaults untouched: a second, flat-lexicon search over the whole
    // utterance after the tree search, then the best path through its lattice. Several
    // times the work at the end for no measurable gain in accuracy on dictation; kept to
    // measure against.
    flatRedecode,
};

// PocketSphinx with a US English acoustic model, language model and dictionary taken from
// one model directory ("en-us/", "en-us.lm.bin", "cmudict-en-us.dict"). Decoders are
// expensive to load, so finished utterances hand theirs back to a pool for the next one.
class PocketSphinxRecognizerFactory : public RecognizerFactory
{
public:
    // The model directory of the system's pocketsphinx-en-us package.
    static std::string defaultModelDir();

    // Loads one decoder up front so that a broken model is found at start-up.
    static Expected<std::unique_ptr<PocketSphinxRecognizerFactory>, std::string> load(
        const std::string &modelDir, FinalPass finalPass = FinalPass::bestPath);

    ~PocketSphinxRecognizerFactory() override;

    Backends backends() const override;
    std::unique_ptr<Recognizer> create() override;

private:
    explicit PocketSphinxRecognizerFactory(std::shared_ptr<DecoderPool> pool);

    std::shared_ptr<DecoderPool> m_pool;
};

} // namespace sayvo
