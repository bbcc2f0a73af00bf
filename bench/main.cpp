#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "bench/benchmarks.h"

namespace {

std::string duration(double seconds)
{
    const struct {
        double unit;
        const char* name;
    } units[] = {{1, "s"}, {1e-3, "ms"}, {1e-6, "us"}, {1e-9, "ns"}};
    for (const auto& [unit, name] : units) {
        if (seconds < unit && unit > 1e-9)
            continue;
        char text[32];
        std::snprintf(text, sizeof text, "%.3g %s", seconds / unit, name);
        return text;
    }
    return {};
}

/// One plain line for each benchmark.
class ratio_lines : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            const char* name = run.run_name.function_name.c_str();
            const std::string arguments = run.run_name.args.empty() ? "" : "/" + run.run_name.args;
            if (run.error_occurred) {
                std::printf("%s%s: %s\n", name, arguments.c_str(), run.error_message.c_str());
                failed_ |= run.error_message.rfind("skipped", 0) != 0;
                continue;
            }
            std::printf("%s%s: ratio %.2f, spread %.0f %% (peer %s; %s against %s)\n", name,
                        arguments.c_str(), run.counters.at("ratio").value,
                        100 * run.counters.at("spread").value, run.report_label.c_str(),
                        duration(run.counters.at("ours").value).c_str(),
                        duration(run.counters.at("peer").value).c_str());
        }
        std::fflush(stdout);
    }

    bool failed() const { return failed_; }

private:
    bool failed_ = false;
};

} // namespace

int main(int argc, char** argv)
{
    bench::plan plan{false};
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--smoke") == 0) {
            plan.smoke = true;
            std::memmove(argv + i, argv + i + 1, static_cast<std::size_t>(argc - i) * sizeof *argv);
            --argc;
            break;
        }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;

    bench::register_md5(plan);
    bench::register_file_digest(plan);
    bench::register_program_lists(plan);
    bench::register_text_tables(plan);
    bench::register_process_map(plan);
    bench::register_exec_check(plan);
    bench::register_channel(plan);
    bench::register_session(plan);

    ratio_lines lines;
    const std::size_t ran = benchmark::RunSpecifiedBenchmarks(&lines);
    benchmark::Shutdown();
    return ran == 0 || lines.failed() ? 1 : 0;
}
