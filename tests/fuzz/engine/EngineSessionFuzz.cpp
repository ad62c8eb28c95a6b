// Feeds a session arbitrary frames: the input is split at "\n--\n"; a piece starting with
// 'B' is a binary frame (the rest), anything else a text frame. Every reply must be a
// message the client can decode.
#include "engine/asr/ReplayRecognizer.h"
#include "engine/server/EngineSession.h"
#include "engine/store/LearningStore.h"
#include "protocol/WireCodec.h"
#include "support/engine/InlineWorkers.h"

#include <cstdlib>
#include <string_view>

namespace {

struct Engine
{
    sayvo::ReplayRecognizerFactory recognizers {
        {"um the total comes to forty two dollars", "", "ask marin"}};
    sayvo::Formatter formatter;
    sayvo::RecentUtterances recent;
    // An in-memory store: feedback and suggestions are exercised without touching the disk.
    std::unique_ptr<sayvo::LearningStore> store
        = std::move(sayvo::LearningStore::open(":memory:")).value();
    sayvo::test::InlineWorkers workers {2};
    sayvo::test::InlineLane storeLane;
    sayvo::EngineServices services = [this] {
        sayvo::EngineServices s {recognizers, formatter, store.get(), recent, "fuzz"};
        s.workers = &workers;
        s.storeLane = &storeLane;
        return s;
    }();
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Engine engine;
    sayvo::EngineSession session(engine.services, [](const std::string &json) {
        if (!sayvo::decodeInbound(json)) {
            std::abort();
        }
    });
    std::string_view input(reinterpret_cast<const char *>(data), size);
    constexpr std::string_view kSeparator = "\n--\n";
    while (true) {
        const std::size_t end = input.find(kSeparator);
        const std::string_view piece = input.substr(0, end);
        if (!piece.empty() && piece[0] == 'B') {
            session.handleBinary(piece.substr(1));
        } else {
            session.handleText(piece);
        }
        if (end == std::string_view::npos) {
            break;
        }
        input.remove_prefix(end + kSeparator.size());
    }
    return 0;
}
