// Random trees, saved to and loaded from each place for settings.

#include <glue/NV_store/NV_buffer_iterator.h>
#include <glue/NV_store/NV_pcfile_iterator.h>
#include <glue/NV_store/NV_safe_file_iterator.h>
#include <glue/NV_store/NV_stream_iterator.h>

#include <support/fakes/Captured_debug.h>
#include <support/fakes/Scripted_stream.h>
#include <support/files/Mounted_store.h>
#include <support/files/Temporary_folder.h>
#include <support/settings/Random_settings.h>

#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <vector>

namespace {

using NV_store::NV_iterator;
using NV_store::NV_load_result;

/// A place for settings.
class Place {
  public:
    virtual ~Place() = default;
    virtual bool save(NV_store::NV_item& tree, NV_iterator::modes_t mode) = 0;
    virtual NV_load_result load(NV_store::NV_item& tree) = 0;
};

/// One with an iterator that opens and closes.
template <typename Iterator>
class File_place : public Place {
  public:
    explicit File_place(const std::string& path) : it_(path.c_str()) {}
    bool save(NV_store::NV_item& tree, NV_iterator::modes_t mode) override {
        it_.set_mode(mode);
        const bool saved = it_.get_mode() == mode && tree.serialise(&it_);
        it_.set_mode(NV_iterator::closed);
        return saved;
    }
    NV_load_result load(NV_store::NV_item& tree) override {
        it_.set_mode(NV_iterator::reading);
        const NV_load_result result = load_all(tree, it_);
        it_.set_mode(NV_iterator::closed);
        return result;
    }

  protected:
    Iterator it_;
};

class Safe_place : public File_place<NV_store::NV_safe_file_iterator> {
  public:
    using File_place::File_place;
    bool save(NV_store::NV_item& tree, NV_iterator::modes_t mode) override { return it_.save(tree, mode); }
};

class Stream_place : public Place {
  public:
    bool save(NV_store::NV_item& tree, NV_iterator::modes_t mode) override {
        if (mode == NV_iterator::writing_all || mode == NV_iterator::writing_set)
            stream_.written.clear();
        it_.set_mode(mode);
        return tree.serialise(&it_);
    }
    NV_load_result load(NV_store::NV_item& tree) override {
        stream_.will_arrive(stream_.written);
        it_.set_mode(NV_iterator::reading);
        return load_all(tree, it_);
    }

  private:
    Scripted_stream stream_;
    NV_store::NV_stream_iterator it_{stream_};
};

class Buffer_place : public Place {
  public:
    bool save(NV_store::NV_item& tree, NV_iterator::modes_t mode) override {
        if (mode == NV_iterator::writing_all || mode == NV_iterator::writing_set)
            it_.reset_writing();
        it_.set_mode(mode);
        return tree.serialise(&it_);
    }
    NV_load_result load(NV_store::NV_item& tree) override {
        it_.set_mode(NV_iterator::reading);
        it_.reset_reading();
        return load_all(tree, it_);
    }

  private:
    std::vector<unsigned char> bytes_ = std::vector<unsigned char>(1 << 20);
    NV_store::NV_buffer_iterator it_{bytes_.data(), 1 << 20, 0};
};

struct Settings_round_trip : testing::TestWithParam<const char*> {
    Temporary_folder folder;
    Mounted_store store{1 << 20};
    Random random;

    std::unique_ptr<Place> place() const {
        const std::string kind = GetParam();
        if (kind == "file")
            return std::make_unique<File_place<NV_store::NV_file_iterator>>(folder.path("settings"));
        if (kind == "safe_file")
            return std::make_unique<Safe_place>(folder.path("settings"));
        if (kind == "pcfile")
            return std::make_unique<File_place<NV_store::NV_pcfile_iterator>>("settings");
        if (kind == "stream")
            return std::make_unique<Stream_place>();
        return std::make_unique<Buffer_place>();
    }
};

INSTANTIATE_TEST_SUITE_P(through, Settings_round_trip,
                         testing::Values("file", "safe_file", "pcfile", "stream", "buffer"),
                         [](const auto& kind) { return std::string(kind.param); });

unsigned dirty(const Random_settings& tree) {
    unsigned count = 0;
    for (const unsigned char flags : tree.flags())
        count += (flags & 3U) != 0;
    return count;
}

TEST_P(Settings_round_trip, full_save_restores_every_value_to_the_bit) {
    for (int round = 0; round < 40; ++round) {
        const Settings_shape shape = Settings_shape::random(random, true);
        Random_settings saved(shape);
        Random_settings loaded(shape);
        saved.change(random, 2);
        loaded.change(random, 3); // does not matter: everything is loaded
        const auto where = place();
        ASSERT_TRUE(where->save(saved, NV_iterator::writing_all));
        EXPECT_EQ(dirty(saved), 0U);
        const NV_load_result result = where->load(loaded);
        ASSERT_TRUE(result.intact);
        EXPECT_EQ(result.loaded, 1U);
        ASSERT_EQ(loaded.values(), saved.values());
    }
}

TEST_P(Settings_round_trip, save_of_set_values_leaves_the_rest_at_its_defaults) {
    for (int round = 0; round < 40; ++round) {
        const Settings_shape shape = Settings_shape::random(random);
        Random_settings saved(shape);
        Random_settings loaded(shape);
        if (saved.change(random, 4) == 0 || (saved.get_flags() & NV_store::NV_item::pristine) != 0)
            continue;
        const auto where = place();
        ASSERT_TRUE(where->save(saved, NV_iterator::writing_set));
        ASSERT_TRUE(where->load(loaded).intact);
        ASSERT_EQ(loaded.values(), saved.values());
    }
}

TEST_P(Settings_round_trip, incremental_saves_restore_the_last_values) {
    for (int round = 0; round < 20; ++round) {
        const Settings_shape shape = Settings_shape::random(random);
        Random_settings saved(shape);
        const auto where = place();
        ASSERT_TRUE(where->save(saved, NV_iterator::writing_all));
        unsigned records = 1;
        for (unsigned more = random.between(1, 6); more > 0; --more) {
            saved.change(random, 5);
            records += (saved.get_flags() & NV_store::NV_item::dirty_change) != 0;
            ASSERT_TRUE(
                where->save(saved, random.one_in(2) ? NV_iterator::appending_written : NV_iterator::appending_changed));
            EXPECT_EQ(dirty(saved), 0U);
        }
        Random_settings loaded(shape);
        const NV_load_result result = where->load(loaded);
        ASSERT_TRUE(result.intact);
        EXPECT_EQ(result.loaded, records);
        ASSERT_EQ(loaded.values(), saved.values());
    }
}

} // namespace
