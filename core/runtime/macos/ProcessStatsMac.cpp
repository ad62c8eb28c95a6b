#include "runtime/FootprintSampler.h"
#include "runtime/ProcessStats.h"

namespace sayvo {

namespace {

// macOS's ps reports each process's recent CPU use (a decaying average), which is already a
// current figure.
class ProcessStatsMac : public ProcessStats
{
public:
    std::optional<EngineFootprint> sampleTree(pid_t root) override
    {
        return FootprintSampler::sampleTree(root);
    }
};

} // namespace

std::unique_ptr<ProcessStats> createProcessStats()
{
    return std::make_unique<ProcessStatsMac>();
}

} // namespace sayvo
