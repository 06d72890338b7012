// Settings: saved, changed, loaded.
#include "Comparison.h"

#include <glue/NV_store/NV_buffer_iterator.h>
#include <glue/NV_store/NV_number.h>
#include <glue/NV_store/NV_root.h>

#include <QBuffer>
#include <QDataStream>
#include <QVariantMap>
#include <deque>

namespace {

using namespace NV_store;

constexpr int groups = 20, settings_of_group = 50;
constexpr int setting_count = groups * settings_of_group;

/// A thousand numbers in twenty groups.
struct Unit_settings : NV_root {
    Unit_settings() : NV_root(nullptr, 0, "settings") {
        _set_root(this);
        for (int group = 0; group < groups; ++group) {
            NV_struct& parent = structs.emplace_back(this, nullptr, static_cast<unsigned short>(group), "group");
            for (int i = 0; i < settings_of_group; ++i)
                numbers.emplace_back(&parent, static_cast<unsigned short>(i), 1.5, "number");
        }
    }
    std::deque<NV_struct> structs;
    std::deque<NV_number<double, 11>> numbers;
};

unsigned char bytes[1 << 16];

int save_to_bytes(Unit_settings& settings) {
    NV_buffer_iterator it(bytes, sizeof bytes, 0);
    it.set_mode(NV_iterator::writing_all);
    return settings.serialise(&it) ? it.length() : 0;
}

void save(benchmark::State& state) {
    Unit_settings settings;
    for ([[maybe_unused]] auto _ : state) {
        if (save_to_bytes(settings) == 0)
            state.SkipWithError("not saved");
    }
    state.SetItemsProcessed(state.iterations() * setting_count);
}

void load(benchmark::State& state) {
    Unit_settings settings;
    const int length = save_to_bytes(settings);
    for ([[maybe_unused]] auto _ : state) {
        NV_buffer_iterator it(bytes, sizeof bytes, length);
        it.set_mode(NV_iterator::reading);
        if (!load_all(settings, it).intact)
            state.SkipWithError("not loaded");
    }
    state.SetItemsProcessed(state.iterations() * setting_count);
}

QVariantMap map_of_settings() {
    QVariantMap map;
    for (int group = 0; group < groups; ++group) {
        QVariantMap numbers;
        for (int i = 0; i < settings_of_group; ++i)
            numbers.insert(QString::number(i), 1.5);
        map.insert(QString::number(group), numbers);
    }
    return map;
}

void save_map(benchmark::State& state) {
    const QVariantMap map = map_of_settings();
    QByteArray memory;
    memory.reserve(1 << 16);
    for ([[maybe_unused]] auto _ : state) {
        QBuffer buffer(&memory);
        buffer.open(QIODevice::WriteOnly);
        QDataStream out(&buffer);
        out << map;
    }
    state.SetItemsProcessed(state.iterations() * setting_count);
}

void load_map(benchmark::State& state) {
    QByteArray memory;
    QDataStream out(&memory, QIODevice::WriteOnly);
    out << map_of_settings();
    for ([[maybe_unused]] auto _ : state) {
        QVariantMap map;
        QDataStream in(memory);
        in >> map;
        benchmark::DoNotOptimize(map);
    }
    state.SetItemsProcessed(state.iterations() * setting_count);
}

void change(benchmark::State& state) {
    Unit_settings settings;
    int notifications = 0;
    QObject::connect(&settings.numbers.front(), qOverload<>(&NV_item::value_changed), [&] { ++notifications; });
    double value = 0;
    for ([[maybe_unused]] auto _ : state)
        settings.numbers.front().set(++value);
    if (notifications != state.iterations())
        state.SkipWithError("changes were not notifications of");
    state.SetItemsProcessed(state.iterations());
}

void change_property(benchmark::State& state) {
    QObject object;
    int notifications = 0;
    QObject::connect(&object, &QObject::objectNameChanged, [&] { ++notifications; });
    const QString names[] = {QStringLiteral("one"), QStringLiteral("other")};
    unsigned i = 0;
    for ([[maybe_unused]] auto _ : state)
        object.setObjectName(names[++i % 2]);
    if (notifications != state.iterations())
        state.SkipWithError("changes were not notifications of");
    state.SetItemsProcessed(state.iterations());
}

const Benchmarks settings{
    {"settings saved", save, "QDataStream writes a map of maps", save_map, 1e5, "a thousand in 10 ms"},
    {"settings loaded", load, "QDataStream reads a map of maps", load_map, 1e5, "a thousand in 10 ms, at start-up"},
    {"change a setting and notify", change, "a property of a QObject", change_property, headroom * 1000,
     "a thousand a second, a hundred times over"},
};

} // namespace
