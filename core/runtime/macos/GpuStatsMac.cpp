#include "runtime/GpuStats.h"

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>

#include <algorithm>

namespace sayvo {

namespace {

// The accelerators' own performance statistics in the I/O registry. Apple silicon reports
// "Device Utilization %", several discrete GPUs "GPU Activity(%)".
class GpuStatsMac : public GpuStats
{
public:
    std::optional<double> utilisationPercent() override
    {
        CFMutableDictionaryRef matching = IOServiceMatching("IOAccelerator");
        if (!matching) {
            return std::nullopt;
        }
        io_iterator_t services = 0;
        // The null port asks the default main port, on every system version.
        if (IOServiceGetMatchingServices(MACH_PORT_NULL, matching, &services) != KERN_SUCCESS) {
            return std::nullopt;
        }
        std::optional<double> best;
        while (io_object_t service = IOIteratorNext(services)) {
            CFMutableDictionaryRef properties = nullptr;
            if (IORegistryEntryCreateCFProperties(service, &properties, kCFAllocatorDefault, 0)
                    == KERN_SUCCESS
                && properties) {
                best = largest(best, properties);
                CFRelease(properties);
            }
            IOObjectRelease(service);
        }
        IOObjectRelease(services);
        return best;
    }

private:
    static std::optional<double> largest(std::optional<double> best, CFDictionaryRef properties)
    {
        const CFTypeRef statistics
            = CFDictionaryGetValue(properties, CFSTR("PerformanceStatistics"));
        if (!statistics || CFGetTypeID(statistics) != CFDictionaryGetTypeID()) {
            return best;
        }
        for (CFStringRef key : {CFSTR("Device Utilization %"), CFSTR("GPU Activity(%)")}) {
            const CFTypeRef value
                = CFDictionaryGetValue(static_cast<CFDictionaryRef>(statistics), key);
            double number = 0.0;
            if (value && CFGetTypeID(value) == CFNumberGetTypeID()
                && CFNumberGetValue(
                    static_cast<CFNumberRef>(value), kCFNumberDoubleType, &number)) {
                best = best ? std::max(*best, number) : number;
            }
        }
        return best;
    }
};

} // namespace

std::unique_ptr<GpuStats> createGpuStats()
{
    return std::make_unique<GpuStatsMac>();
}

} // namespace sayvo
