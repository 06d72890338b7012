// Ini files and traffic logs.
#include "Comparison.h"
#include "Memory_stream.h"

#include <glue/inifile/Inifile_parser.h>
#include <glue/inifile/Inifile_record.h>
#include <glue/logging/logging_source.h>

#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <cstdio>

namespace {

constexpr int key_count = 1000;

QByteArray ini_text() {
    QByteArray text = "[machine]\n";
    for (int i = 0; i < key_count; ++i)
        text += "key" + QByteArray::number(i) + "=" + QByteArray::number(i + 0.5) + "\n";
    return text;
}

void read_ini(benchmark::State& state) {
    const QByteArray text = ini_text();
    Memory_stream stream;
    Inifile_parser parser(&stream);
    for ([[maybe_unused]] auto _ : state) {
        stream.read_from(reinterpret_cast<const unsigned char*>(text.data()), static_cast<std::size_t>(text.size()));
        Inifile_record record;
        double total = 0;
        for (; parser.get_packet(record, true); record.init())
            total += record.as_type(Inifile_record::type_double) ? record.as_double(-1) : 0;
        if (total != key_count * (key_count - 1) / 2 + key_count * 0.5)
            state.SkipWithError("values were lost");
    }
    state.SetItemsProcessed(state.iterations() * key_count);
}

void read_ini_with_Qt(benchmark::State& state) {
    const QTemporaryDir folder;
    const QString path = folder.filePath("machine.ini");
    {
        QFile file(path);
        file.open(QIODevice::WriteOnly);
        file.write(ini_text());
    }
    for ([[maybe_unused]] auto _ : state) {
        // QSettings caches files that it has read; it reads a new copy again.
        QFile::remove(path + "2");
        QFile::copy(path, path + "2");
        QSettings settings(path + "2", QSettings::IniFormat);
        settings.beginGroup("machine");
        double total = 0;
        for (const QString& key : settings.childKeys())
            total += settings.value(key).toDouble();
        if (total != key_count * (key_count - 1) / 2 + key_count * 0.5)
            state.SkipWithError("values were lost");
    }
    state.SetItemsProcessed(state.iterations() * key_count);
}

constexpr std::size_t piece_size = 500; // about one epoch of a receiver

void log_traffic(benchmark::State& state) {
    constexpr auto source = logging_source_receiver;
    // Enabled before it has a folder for its files, it opens none and keeps history.
    [[maybe_unused]] static const bool keeps_history = [] {
        logging_source_enable(source, true);
        logging_source_configure(source, false, 60000, 4 << 20, ".", "bench", "raw", false);
        return true;
    }();
    const unsigned char piece[piece_size] = {};
    const std::uint64_t dropped = logging_source_get_status(source).dropped;
    for ([[maybe_unused]] auto _ : state)
        logging_source_write(source, piece, piece + piece_size);
    if (logging_source_get_status(source).dropped != dropped || logging_source_get_status(source).history_bytes == 0)
        state.SkipWithError("bytes were dropped");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(piece_size));
}

void write_to_file(benchmark::State& state) {
    std::FILE* const file = std::tmpfile();
    const unsigned char piece[piece_size] = {};
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(std::fwrite(piece, 1, piece_size, file));
    std::fclose(file);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(piece_size));
}

const Benchmarks files{
    {"keys of an ini file", read_ini, "QSettings, which sorts them, too", read_ini_with_Qt, 1e5,
     "a thousand in 10 ms, at start-up"},
    {"keep traffic as history", log_traffic, "fwrite to a file", write_to_file, headroom* serial_line,
     "a receiver at 921,600 baud, a hundred times over"},
};

} // namespace
