// What the receiver's functions cost next to what they are measured against. Each benchmark is a
// row and reports the CPU time of each side, in nanoseconds; scripts/bench makes the ratios.

#include "benchreceiver.h"
#include "paths.h"

#include <QCoreApplication>
#include <QFile>

#include <benchmark/benchmark.h>

#include <array>
#include <ctime>
#include <functional>
#include <vector>

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

namespace {

constexpr unsigned manyRecords = 1'000'000;

double cpuTime()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e9 + double(time.tv_nsec);
}

/// One side of a comparison: what to run, and how it is called in the report.
struct Side
{
    const char *name;
    std::function<void()> run;
};

/// Lets all sides run in turns of \a batches, so that they meet the same moments of a busy machine
/// and the same state of the heap, which weighs as much as they differ. The first turn warms up.
void compare(benchmark::State &state, int batches, const std::vector<Side> &sides)
{
    for (const Side &side : sides) {
        state.counters[side.name] = 0;
        side.run();
    }
    for (auto _ : state) {
        for (const Side &side : sides) {
            const double start = cpuTime();
            for (int i = 0; i < batches; ++i)
                side.run();
            state.counters[side.name] += (cpuTime() - start) / batches;
        }
    }
    for (const Side &side : sides)
        state.counters[side.name].flags = benchmark::Counter::kAvgIterations;
}

/// What the least reader of the device does.
void discard(CanDevice &device, std::span<const can_frame> frames)
{
    device.receive(frames);
    while (device.framesAvailable() > 0)
        device.readFrame();
}

// ---- A data frame

void dataFrames(benchmark::State &state)
{
    const Logging logging(shippedRules);
    BenchReceiver receiver;
    CanDevice device;
    device.connectDevice();
    compare(state, 32,
            {
                {"receiver", [&] { receiver.receiveData(); }},
                {"discarded", [&] { discard(device, record.data()); }},
            });
    if (!receiver.gotData())
        state.SkipWithError("the frames are not in the record buffer");
}
BENCHMARK(dataFrames)->Name("frame");

// ---- A whole record

/// The least that puts a record into a file: no check but the CRC, no answer, no display, no log.
void writeBare(CanDevice &device, int file)
{
    std::array<char, Record::bytes> buffer;
    char *out = buffer.data();
    device.receive(record.all());
    device.readFrame();
    for (std::size_t i = 0; i < Record::dataFrames; ++i) {
        const QCanBusFrame frame = device.readFrame();
        const QByteArray payload = frame.payload();
        for (const char byte : payload)
            *out++ = byte;
    }
    device.readFrame();
    benchmark::DoNotOptimize(
        crc32(0, reinterpret_cast<const Bytef *>(buffer.data()), uInt(buffer.size())));
    benchmark::DoNotOptimize(::write(file, buffer.data(), buffer.size()));
}

void records(benchmark::State &state)
{
    const Logging logging(shippedRules);
    BenchReceiver receiver;
    receiver.device.receive(std::array{initiatePackage(manyRecords)});
    CanDevice device;
    device.connectDevice();
    const int file = ::open(Paths::genericFile.data(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                            0644);
    constexpr int batches = 32;
    compare(state, batches,
            {
                {"receiver", [&] { receiver.device.receive(record.all()); }},
                {"bare", [&] { writeBare(device, file); }},
                {"discarded", [&] { discard(device, record.all()); }},
            });
    ::close(file);
    const qint64 expected = (1 + state.iterations() * batches) * qint64(Record::bytes);
    if (QFile(Paths::package).size() != expected || QFile(Paths::genericFile).size() != expected)
        state.SkipWithError("the records are not in the files");
}
BENCHMARK(records)->Name("record");

// ---- CRC of a file

constexpr char bigFile[] = "crc.bin";
constexpr long bigSize = 256L << 20;

bool makeBigFile()
{
    QFile file(QString::fromLatin1(bigFile));
    return file.open(QIODevice::WriteOnly) && file.write(QByteArray(bigSize, 'x')) == bigSize
        && file.flush();
}

quint32 bareCrc()
{
    std::array<Bytef, 4096> buffer;
    const int file = ::open(bigFile, O_RDONLY | O_CLOEXEC);
    uLong crc = 0;
    for (ssize_t count; (count = ::read(file, buffer.data(), buffer.size())) > 0;)
        crc = crc32(crc, buffer.data(), uInt(count));
    ::close(file);
    return quint32(crc);
}

void fileCrc(benchmark::State &state)
{
    if (!makeBigFile()) {
        state.SkipWithError("there is no room for the file to check");
        return;
    }
    CanBusManager manager;
    quint32 crc = 0;
    quint32 bare = 0;
    compare(state, 1,
            {
                {"receiver",
                 [&] { crc = manager.CalculateCRC32(QString::fromLatin1(bigFile), 0, bigSize); }},
                {"bare", [&] { bare = bareCrc(); }},
            });
    if (crc != bare)
        state.SkipWithError("the CRC is wrong");
}
BENCHMARK(fileCrc)->Name("crc");

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
