// What the receiver's functions cost next to what they are measured against. Each benchmark is a
// row and reports the CPU time of each side, in nanoseconds; scripts/bench makes the ratios.

#include "benchreceiver.h"
#include "log.h"
#include "paths.h"
#include "wire.h"

#include <QCoreApplication>
#include <QFile>
#include <QStringList>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <functional>
#include <random>
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

// ---- A data frame with every level on

/// What the receiver logs for a data frame.
void logDataFrame(quint32 id, const QByteArray &payload)
{
    qCDebug(logCategory) << "onFramesReceived: Frame: 0x" << QString::number(id, 16).toUpper()
                         << "Payload:" << payload.toHex('-').toUpper();
    qCInfo(logCategory) << "onFramesReceived: Multipacket CAN Message";
    qCDebug(logCategory) << "processP6CanCommand: Received P6 Frame srcID: "
                         << Wire::sourceNode.of(id) << " destID: " << Wire::destinationNode.of(id)
                         << " p6Type: " << Wire::P6::type.of(id)
                         << "cmdResp: " << Wire::P6::commandResponse.of(id);
    qCInfo(logCategory) << "processP6CanCommand: P6 Message Type Data Frame received";
    qCDebug(logCategory) << "processP6DataFrameCommand: Frame Number: "
                         << Wire::DataFrame::frameNumber.of(id)
                         << "Payload Size: " << payload.size();
}

void logDataFrames()
{
    for (const can_frame &frame : record.data())
        logDataFrame(
            frame.can_id & CAN_EFF_MASK,
            QByteArray::fromRawData(reinterpret_cast<const char *>(frame.data), frame.can_dlc));
}

void loggedDataFrames(benchmark::State &state)
{
    const Logging logging(everyLevel);
    BenchReceiver receiver;
    compare(state, 2,
            {
                {"receiver", [&] { receiver.receiveData(); }},
                {"messages", logDataFrames},
            });
}
BENCHMARK(loggedDataFrames)->Name("logged");

QStringList messages;

/// Whether the messages measured alone are the receiver's.
bool sameMessages()
{
    const Logging logging(everyLevel);
    BenchReceiver receiver;
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        messages.append(QString::number(type) + text);
    });
    receiver.receiveData();
    const QStringList expected = std::exchange(messages, {});
    logDataFrames();
    return expected.size() == 5 * qsizetype(Record::dataFrames) && messages == expected;
}

// ---- CRC of a file

constexpr char bigFile[] = "crc.bin";
constexpr long bigSize = 256L << 20;

bool makeBigFile()
{
    std::array<quint32, 1024> chunk;
    std::minstd_rand random;
    std::generate(chunk.begin(), chunk.end(), random);
    QFile file(QString::fromLatin1(bigFile));
    if (!file.open(QIODevice::WriteOnly))
        return false;
    for (long size = 0; size < bigSize; size += sizeof chunk)
        file.write(reinterpret_cast<const char *>(chunk.data()), sizeof chunk);
    file.close();
    return file.size() == bigSize;
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
    if (!sameMessages())
        qFatal("The messages measured alone are not those of the receiver");
    if (!makeBigFile())
        qFatal("There is no room for the file to check");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
