// The text passes on arbitrary recogniser output and user edits: the formatter in every
// domain, with the input's words as a personal dictionary, and the correction finder.
#include "engine/format/DomainDetector.h"
#include "engine/format/Formatter.h"
#include "engine/store/LearningStore.h"

#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string input(reinterpret_cast<const char *>(data), size);
    const std::size_t split = input.find('|');
    const std::string spoken = input.substr(0, split);
    const std::string edited = split == std::string::npos ? std::string() : input.substr(split + 1);

    std::vector<std::string> dictionary;
    std::istringstream words(edited);
    for (std::string w; words >> w && dictionary.size() < 8;) {
        dictionary.push_back(w);
    }
    sayvo::Formatter formatter;
    for (const char *domain : {"default", "email", "legal", "casual"}) {
        const sayvo::FormatResult r = formatter.format(spoken, domain, dictionary);
        if (r.fillerCount > r.spokenWordCount) {
            __builtin_trap();
        }
    }
    sayvo::LearningStore::corrections(spoken, edited);
    sayvo::ContextPack context;
    context.windowTitle = spoken;
    context.screenText = edited;
    sayvo::DomainDetector::detect(context);
    return 0;
}
