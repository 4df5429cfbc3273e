// A data logger: samples of three sensors grow in an array, what happens on the way goes into a table. Start it again,
// and it goes on in the same file.
// Usage: logger <output folder> [samples]
#include <tarnwickhdf/typed.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace
{

namespace hdf = tarnwick::hdf;

constexpr unsigned int kColumns = 4; // time, temperature, humidity, pressure
constexpr unsigned int kChunkRows = 1024;
constexpr int kCompression = 4;
constexpr std::int64_t kInterval = 10; // seconds
// Appending a block costs little more than appending a row. What a crash may take is the samples since the last flush.
constexpr std::int64_t kSamplesOfABlock = 60;
constexpr std::int64_t kSamplesOfAFlush = 360;

struct Sensor
{
    double lowest;
    double highest;
    hdf::FixedText<16> name;
    hdf::FixedText<8> unit;
};

const hdf::RowType<Sensor> kSensorType = {
    {"name", &Sensor::name}, {"unit", &Sensor::unit}, {"lowest", &Sensor::lowest}, {"highest", &Sensor::highest}};

const std::vector<Sensor> kSensors = {
    {-40, 28, "temperature", "°C"}, {0, 100, "humidity", "%"}, {300, 1100, "pressure", "hPa"}};

struct Event
{
    std::int64_t time;
    double value;
    hdf::FixedText<16> sensor;
    hdf::FixedText<32> text;
};

const hdf::RowType<Event> kEventType = {
    {"time", &Event::time}, {"sensor", &Event::sensor}, {"value", &Event::value}, {"text", &Event::text}};

// What real sensors would tell.
std::vector<double> Measure(std::int64_t time)
{
    const double hours = static_cast<double>(time) / 3600;
    return {static_cast<double>(time), 20 + 9 * std::sin(hours / 4), 55 + 20 * std::cos(hours / 4),
            1013 + 5 * std::sin(hours / 30)};
}

class Logger
{
public:
    Logger(const std::string& filename, const std::string& memoryLog)
        : m_memory(new hdf::MemoryLoggerFileTracker), m_memoryLog(memoryLog)
    {
        if (!hdf::IFile::GetGlobalFileTracker())
        {
            hdf::IFile::InstallGlobalFileTracker(m_memory);
        }
        m_file = hdf::IFile::Open(filename, "r+", kCompression);
        m_group = m_file->GetRoot()->CreateGroup("station/roof");
        if (m_group->HasExtensibleArray2D("samples"))
        {
            GoOn();
        }
        else
        {
            Begin();
        }
    }

    void Run(std::int64_t samples)
    {
        for (std::int64_t i = 1; i <= samples; ++i, m_time += kInterval)
        {
            const std::vector<double> sample = Measure(m_time);
            m_block.insert(m_block.end(), sample.begin(), sample.end());
            Watch(sample);
            if (i % kSamplesOfABlock == 0)
            {
                Append();
            }
            if (i % kSamplesOfAFlush == 0)
            {
                Flush();
            }
        }
        Append();
        Flush();
        // The destructor would close too, but couldn't tell of a full disk.
        m_file->Close();
    }

private:
    void Begin()
    {
        m_samples = hdf::MakeExtensibleArray2D<double>(*m_group, "samples", kColumns, kChunkRows);
        hdf::StoreAttr(*m_samples, "columns", std::vector<std::string>{"time", "temperature", "humidity", "pressure"});
        hdf::StoreAttr(*m_samples, "interval", kInterval);
        hdf::StoreTable(*m_group, "sensors", kSensorType, kSensors);
        hdf::StoreAttr(*m_group, "place", "on the roof, Zürich");
        hdf::StoreAttr(*m_group, "position", std::vector<double>{47.38, 8.54, 408});
        hdf::StoreAttr(*m_group, "calibrated", true);
    }

    void GoOn()
    {
        m_samples = m_group->GetExtensibleArray2D("samples");
        m_time = m_samples->GetNumberOfRows() * hdf::ReadAttr<std::int64_t>(*m_samples, "interval");
        m_events = hdf::ReadTable(*m_group, "events", kEventType);
    }

    void Watch(const std::vector<double>& sample)
    {
        for (size_t i = 0; i < kSensors.size(); ++i)
        {
            const Sensor& sensor = kSensors[i];
            const bool isWithin = sample[i + 1] >= sensor.lowest && sample[i + 1] <= sensor.highest;
            if (!isWithin && m_time % 3600 == 0)
            {
                m_events.push_back({m_time, sample[i + 1], sensor.name, "out of range"});
            }
        }
    }

    void Append()
    {
        hdf::AppendRows(*m_samples, m_block);
        m_block.clear();
    }

    // A table doesn't grow in place: a short one is simply stored again.
    void Flush()
    {
        hdf::StoreTable(*m_group, "events", kEventType, m_events);
        hdf::StoreAttr(*m_group, "last time", m_time);
        m_group->Flush();
        m_memory->AppendToMemoryLog(static_cast<int>(m_samples->GetNumberOfRows()), m_memoryLog);
    }

    boost::shared_ptr<hdf::MemoryLoggerFileTracker> m_memory;
    std::string m_memoryLog;
    boost::shared_ptr<hdf::IFile> m_file;
    boost::shared_ptr<hdf::IGroup> m_group;
    boost::shared_ptr<hdf::IExtensibleArray2D> m_samples;
    std::vector<double> m_block;
    std::vector<Event> m_events;
    std::int64_t m_time = 0;
};

void Report(const std::string& filename)
{
    const auto file = hdf::IFile::Open(filename, "r", 0);
    const auto group = file->GetRoot()->GetGroup("station/roof");
    const auto samples = group->GetExtensibleArray2D("samples");
    std::cout << hdf::ReadAttr<std::string>(*group, "place") << ", "
              << (hdf::ReadAttr<bool>(*group, "calibrated") ? "calibrated" : "not calibrated") << ": "
              << samples->GetNumberOfRows() << " samples, the last:";
    const std::vector<double> last = hdf::ReadRows<double>(*samples, samples->GetNumberOfRows() - 1, 1);
    const auto sensors = hdf::ReadTable(*group, "sensors", kSensorType);
    for (size_t i = 0; i < sensors.size(); ++i)
    {
        std::cout << "  " << sensors[i].name.Text() << " " << last[i + 1] << " " << sensors[i].unit.Text();
    }
    std::cout << "\n";
    for (const Event& event : hdf::ReadTable(*group, "events", kEventType))
    {
        std::cout << "after " << event.time / 3600 << " h: " << event.sensor.Text() << " " << event.value << " "
                  << event.text.Text() << "\n";
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
    {
        std::cerr << "usage: logger <output folder> [samples]\n";
        return 1;
    }
    hdf::KeepHdf5Quiet();
    try
    {
        const std::string folder = argv[1];
        Logger(folder + "/logger.h5", folder + "/logger-memory.log").Run(argc > 2 ? std::atoll(argv[2]) : 8640);
        Report(folder + "/logger.h5");
        return 0;
    }
    catch (const std::exception& failure)
    {
        std::cerr << hdf::ReasonOf(failure) << "\n";
        return 1;
    }
}
