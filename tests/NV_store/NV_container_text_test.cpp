#include <glue/NV_store/NV_container.h>

#include <support/settings/Settings_nodes.h>
#include <support/settings/Settings_tree.h>

#include <cstring>

namespace {

using namespace NV_store;

std::string text_of(const NV_item& item, int len) {
    std::vector<char> buffer(static_cast<std::size_t>(len) + 8, '#');
    const int count = item._to_string(buffer.data(), len);
    for (std::size_t i = static_cast<std::size_t>(len); i < buffer.size(); ++i)
        EXPECT_EQ(buffer[i], '#') << "after the end of the buffer";
    if (count > 0) {
        EXPECT_EQ(std::strlen(buffer.data()), static_cast<std::size_t>(count));
    } else {
        EXPECT_EQ(buffer[0], '#') << "nothing is written";
    }
    return std::string(buffer.data(), static_cast<std::size_t>(count));
}

TEST(NV_container, text_has_braces_and_commas) {
    Settings_tree tree;
    EXPECT_EQ(text_of(tree, 100), "{5,{12,1,1},200}");
    EXPECT_EQ(text_of(NV_struct(1, "empty"), 100), "{}");
    EXPECT_EQ(text_of(NV_struct(1, "empty"), 3), "{}");
    EXPECT_EQ(text_of(NV_struct(1, "empty"), 2), "{");
    EXPECT_EQ(text_of(NV_struct(1, "empty"), 1), "");
    EXPECT_EQ(text_of(NV_struct(1, "empty"), 0), "");
}

TEST(NV_container, text_leaves_out_parts_that_do_not_fit) {
    Settings_family<> family(2);
    family[0].set(11);
    family[1].set(2);
    const char* const expected[] = {"", "", "{", "{,", "{11", "{11,", "{11,2", "{11,2}", "{11,2}"};
    for (int len = 0; len < 9; ++len)
        EXPECT_EQ(text_of(family.container, len), expected[len]) << len;
}

TEST(NV_container, texts_are_not_separated_when_braces_do_not_fit) {
    struct Letter : Int_setting {
        using Int_setting::Int_setting;
        int _to_string(char* buf, int len) const override {
            if (len > 0)
                *buf = 'x';
            return len > 0 ? 1 : -1;
        }
    };
    NV_struct container(1, "container");
    const Letter a(&container, 1, 0, "a");
    const Letter b(&container, 2, 0, "b");
    char text[] = "###";
    EXPECT_EQ(container._to_string(text, 1), 1);
    EXPECT_STREQ(text, "x##");
    EXPECT_EQ(container._to_string(text, 2), 2) << "the brace and one digit";
    EXPECT_STREQ(text, "{x#");
}

TEST(NV_container, reads_its_own_text) {
    Settings_tree tree;
    const char* const text = "{-3,{1.5,0,300},7} and more";
    EXPECT_STREQ(tree._from_string(text), " and more");
    EXPECT_EQ(text_of(tree, 100), "{-3,{1.5,0,300},7}");
    const char* const blanks = " \t{ 1 ,\t2\t}";
    Settings_family<> family(2);
    EXPECT_EQ(family.container._from_string(blanks), blanks + std::strlen(blanks));
    EXPECT_EQ(family[1].get(), 2);
    EXPECT_STREQ(NV_struct(1, "empty")._from_string("{}x"), "x");
    EXPECT_STREQ(NV_struct(1, "empty")._from_string("{ \t}"), "");
}

TEST(NV_container, refuses_text_that_is_not_its_own) {
    Settings_family<> family(2);
    for (const char* text : {"", " ", "1,2}", "(1,2)", "{", "{1", "{1,", "{1,2", "{1,2,", "{1 2}", "{1;2}", "{1,2)",
                             "{1}", "{}", "{,2}", "{1,x}", "{1,2,3}", "\n{1,2}", "{1\n,2}"})
        EXPECT_EQ(family.container._from_string(text), nullptr) << text;
    for (const char* text : {"", "{", "{1}", "{,}"})
        EXPECT_EQ(NV_struct(1, "empty")._from_string(text), nullptr) << text;
}

TEST(NV_container, text_sets_and_notifies_up_to_its_first_error) {
    Settings_family<> family(3);
    Recorded_signals recorded;
    recorded.watch(family[0]);
    EXPECT_EQ(family.container._from_string("{8,9;10}"), nullptr);
    EXPECT_EQ(family[0].get(), 8);
    EXPECT_EQ(family[1].get(), 9);
    EXPECT_EQ(family[2].get(), 2);
    EXPECT_EQ(recorded.names().size(), 2U);
}

} // namespace
