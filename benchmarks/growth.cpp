// How the receiver's cost grows with what it is given. Names are "plot/curve/x".

#include "paths.h"
#include "receiver.h"

#include <QCoreApplication>
#include <QFile>

#include <benchmark/benchmark.h>

#include <array>
#include <random>
#include <vector>

namespace {

/// A whole package of \a state.range(0) records, from Transfer Info to the last answer.
void recordsPerFile(benchmark::State &state)
{
    const Logging logging(shippedRules);
    BenchReceiver receiver;
    const auto records = unsigned(state.range(0));
    for (auto _ : state) {
        receiver.device.receive(std::array{announcePackage(records * unsigned(Record::bytes)),
                                           initiatePackage(records)});
        for (unsigned i = 0; i < records; ++i)
            receiver.device.receive(record.all());
        receiver.device.receive(std::array{complete(0)});
    }
    if (QFile(Paths::package).size() != qint64(records) * qint64(Record::bytes))
        state.SkipWithError("the records are not in the file");
}
BENCHMARK(recordsPerFile)->Name("records/package")->RangeMultiplier(4)->Range(1, 1 << 18);

/// The check of a file of \a state.range(0) bytes.
void fileSize(benchmark::State &state)
{
    const QString path = QStringLiteral("growth.bin");
    {
        std::vector<char> content(std::size_t(state.range(0)));
        std::minstd_rand random;
        std::generate(content.begin(), content.end(), [&random] { return char(random() >> 8); });
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly)
            || file.write(content.data(), state.range(0)) != state.range(0))
            state.SkipWithError("there is no room for the file");
    }
    CanBusManager manager;
    for (auto _ : state)
        benchmark::DoNotOptimize(manager.CalculateCRC32(path, 0, long(state.range(0))));
}
BENCHMARK(fileSize)->Name("size/check")->RangeMultiplier(8)->Range(4096, 256 << 20);

/// A record's data frames with the messages of one level and those above passing.
void logLevel(benchmark::State &state, const char *rules)
{
    const Logging logging(rules);
    BenchReceiver receiver;
    for (auto _ : state)
        receiver.receiveData();
}
BENCHMARK_CAPTURE(logLevel, warning, shippedRules)->Name("level/warning/0");
BENCHMARK_CAPTURE(logLevel, info, "default.debug=false\ndefault.info=true")->Name("level/info/1");
BENCHMARK_CAPTURE(logLevel, debug, everyLevel)->Name("level/debug/2");

/// A record with \a state.range(0) frames of others before it.
void foreignFrames(benchmark::State &state, bool ofItsProtocol)
{
    const Logging logging(shippedRules);
    BenchReceiver receiver;
    receiver.device.receive(std::array{initiatePackage(1'000'000)});
    std::vector<can_frame> frames(std::size_t(state.range(0)), foreign(ofItsProtocol));
    frames.insert(frames.end(), record.all().begin(), record.all().end());
    for (auto _ : state)
        receiver.device.receive(frames);
    if (QFile(Paths::package).size() != state.iterations() * qint64(Record::bytes))
        state.SkipWithError("the records are not in the file");
}
BENCHMARK_CAPTURE(foreignFrames, nodes, true)->Name("foreign/nodes")->DenseRange(0, 1024, 128);
BENCHMARK_CAPTURE(foreignFrames, protocol, false)
    ->Name("foreign/protocol")->DenseRange(0, 1024, 128);

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
