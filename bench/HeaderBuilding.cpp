// What a recorder does once per file, and once per frame of variable size.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/IndexCommon.h"
#include "kmxf/writer/OpAtomPictureCDCI.h"

namespace {

void BuildHeaderArea(benchmark::State& state) {
    for (auto _ : state) {
        kmxf::COpAtomPictureCDCI builder(kmxf::VIDEO_STD_50I, kmxf::COMP_TYPE_DV25, 0x104, 0, 48000, false, false, 0);
        builder.Initialize();
        uint8_t* header = nullptr;
        builder.GetHeaderData(&header);
        benchmark::DoNotOptimize(header);
        std::free(header);
    }
}
BENCHMARK(BuildHeaderArea);

void AddIndexEntry(benchmark::State& state) {
    for (auto _ : state) {
        kmxf::CIndexCommon segment(1, 0, 0, 1);
        for (int64_t i = 0; i < state.range(0); ++i) segment.AddIndexEntry(0, 0, 0x80, static_cast<uint64_t>(i) * 1000);
        benchmark::DoNotOptimize(segment.GetLength());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(AddIndexEntry)->Arg(120)->Arg(5000);

}  // namespace
