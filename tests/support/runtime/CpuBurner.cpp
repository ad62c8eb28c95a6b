// A process that uses a known share of a core, for tests of CPU figures:
//   sayvo_cpu_burner BUSY_MS IDLE_MS TOTAL_MS [THEN_IDLE_MS]
// spins for BUSY_MS and sleeps for IDLE_MS in turn until TOTAL_MS have passed, prints
// "cpu=<seconds of CPU it used>", then, given THEN_IDLE_MS, prints "idle" and sleeps that long.
// With IDLE_MS 0 it spins until it has used TOTAL_MS of CPU, however busy the machine is.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>

int main(int argc, char **argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s BUSY_MS IDLE_MS TOTAL_MS [THEN_IDLE_MS]\n", argv[0]);
        return 2;
    }
    using Clock = std::chrono::steady_clock;
    const auto busy = std::chrono::milliseconds(std::atoi(argv[1]));
    const auto idle = std::chrono::milliseconds(std::atoi(argv[2]));
    const auto total = std::chrono::milliseconds(std::atoi(argv[3]));
    const auto start = Clock::now();
    volatile unsigned long sink = 0;
    const auto cpuUsed = [] {
        timespec used {};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
        return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
    };
    while (idle.count() == 0 ? cpuUsed() < total : Clock::now() - start < total) {
        const auto cycle = Clock::now();
        while (Clock::now() - cycle < busy) {
            sink = sink + 1;
        }
        std::this_thread::sleep_for(idle);
    }
    std::printf("cpu=%.6f\n", std::chrono::duration<double>(cpuUsed()).count());
    std::fflush(stdout);
    if (argc > 4) {
        std::printf("idle\n");
        std::fflush(stdout);
        std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(argv[4])));
    }
    return 0;
}
