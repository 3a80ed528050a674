// The bytes of a file after changes, in dialects with rules that other dialects do not have.
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using Store = ZStanzaFileProperties_6_0;
using Change = std::function<void(Store&)>;

std::string textAfter(std::string const& dialect, std::string const& text,
                      std::vector<Change> const& changes)
{
    ZStanzaDialect_6_0 named;
    EXPECT_EQ(1, ZStanzaDialect_6_0::named(dialect.c_str(), named)) << dialect;
    Store store(1, named);
    store.loadText(text.data(), text.size());
    for (Change const& change : changes)
        change(store);
    ZBuffer_6_0 buffer;
    store.storeText(buffer);
    return {static_cast<char const*>(buffer.getBuffer()), buffer.getLength()};
}

Change set(std::string const& stanza, std::string const& key, std::string const& value)
{
    return [=](Store& store) { store.setValue(stanza.c_str(), key.c_str(), value.c_str(), 0); };
}

Change setNone(std::string const& stanza, std::string const& key)
{
    return [=](Store& store) { store.setValues(stanza.c_str(), key.c_str(), nullptr, 0); };
}

}  // namespace

// git refuses a comment after a key without a value. A key that is added in the same store is no
// replacement of the invalid line.
TEST(DialectLines, ARefusedChangeIsRefusedTogetherWithAnAddition)
{
    std::string const text = "[a]\nk=1 ;c\nk=2\n";
    for (std::vector<Change> const& changes : {std::vector<Change>{setNone("a", "k")},
                                               {setNone("a", "k"), set("a", "y", "1")},
                                               {set("a", "y", "1"), setNone("a", "k")},
                                               {setNone("a", "k"), set("b", "y", "1")}})
        EXPECT_THROW(textAfter("git", text, changes), ZPropertiesInvalidValueException_6_0);
    EXPECT_EQ("[a]\nk #c\ny = 1\n",
              textAfter("mysql", "[a]\nk=1 #c\nk=2\n", {setNone("a", "k"), set("a", "y", "1")}));
}

// Nothing is above the mark, also if no line is below it.
TEST(DialectLines, AByteOrderMarkAloneStaysAtTheStart)
{
    std::string const mark = "\xef\xbb\xbf";
    struct Case {
        char const* dialect;
        char const* line;
        char const* comment;
    };
    for (Case const& c : {Case{"editorconfig", "root = false\n", "# c\n"},
                          {"git", "\troot = false\n", "# c\n"},
                          {"php", "root = \"false\"\n", "; c\n"},
                          {"samba", "root = false\n", "# c\n"},
                          {"qt", "root=false\n", "; c\n"},
                          {"ini", "root = false\n", "; c\n"},
                          {"windows", "root=false\n", "; c\n"}}) {
        SCOPED_TRACE(c.dialect);
        EXPECT_EQ(mark + c.line, textAfter(c.dialect, mark, {set(".", "root", "false")}));
        EXPECT_EQ(mark + c.comment, textAfter(c.dialect, mark, {[](Store& store) {
                                                  store.setComment(nullptr, nullptr, " c");
                                              }}));
    }
    EXPECT_EQ(mark + "[a]\nk=v\n", textAfter("systemd", mark, {set("a", "k", "v")}));
}
