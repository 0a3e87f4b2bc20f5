// Settings JSON loading: time per MB for files of 25,000 to 200,000 keys (about 1.25 to
// 10 MB). A loader linear in the file's size shows the same time_per_MB on every row;
// nlohmann's own DOM parse of the same text stands beside it as the yardstick.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "TavriCommon/Settings.h"

namespace {

// Groups of 100 keys, numbers and words alternating, about 50 bytes a key.
std::string settingsText(int keys) {
    std::string text = "{\n";
    for (int group = 0; group * 100 < keys; ++group) {
        text += (group ? ",\n" : "") + std::string("  \"Group") + std::to_string(group) + "\": {\n";
        for (int k = group * 100; k < std::min(keys, (group + 1) * 100); ++k) {
            text += k % 100 ? ",\n" : "";
            text += "    \"Parameter" + std::to_string(k) + "\": ";
            text += k % 2 ? "\"a word for the key with number " + std::to_string(k) + "\"" : std::to_string(k * 1.25 + 0.5);
        }
        text += "\n  }";
    }
    return text + "\n}\n";
}

void setCounters(benchmark::State& state, const std::string& text) {
    const double megabytes = static_cast<double>(text.size()) / 1e6;
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
    state.counters["MB"] = megabytes;
    state.counters["time_per_MB"] = benchmark::Counter(megabytes,
                                                     benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}

void BM_FromJson(benchmark::State& state) {
    const std::string text = settingsText(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(Tavri::TSettings::fromJson(text, "bench.json"));
    setCounters(state, text);
}

void BM_LoadJsonFile(benchmark::State& state) {
    const std::string text = settingsText(static_cast<int>(state.range(0)));
    const std::string file = "settings_bench.json";
    std::ofstream(file, std::ios::binary) << text;
    for (auto _ : state) benchmark::DoNotOptimize(Tavri::TSettings::loadJson(file));
    std::remove(file.c_str());
    setCounters(state, text);
}

void BM_ToJson(benchmark::State& state) {
    const std::string text = settingsText(static_cast<int>(state.range(0)));
    const Tavri::TSettings tree = Tavri::TSettings::fromJson(text);
    std::string saved;
    for (auto _ : state) benchmark::DoNotOptimize(saved = tree.toJson());
    setCounters(state, saved);
}

void BM_NlohmannParse(benchmark::State& state) {
    const std::string text = settingsText(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(nlohmann::json::parse(text));
    setCounters(state, text);
}

}  // namespace

BENCHMARK(BM_FromJson)->RangeMultiplier(2)->Range(25000, 200000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NlohmannParse)->RangeMultiplier(2)->Range(25000, 200000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadJsonFile)->Arg(200000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ToJson)->Arg(200000)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
