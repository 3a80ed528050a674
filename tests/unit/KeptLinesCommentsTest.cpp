// Stores with the attribute keepLines after changes of comments, and renames.
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>

#include "KeptLinesModel.h"
#include "KeptLinesStore.h"

namespace {

class KeptLinesComments : public KeptLines {};

std::function<void(Store&)> setComment(char const* stanza, char const* key, char const* comment)
{
    return [=](Store& store) { store.setComment(stanza, key, comment); };
}

}  // namespace

TEST_F(KeptLinesComments, AReplacedCommentLeavesTheBlankLinesAsTheyAre)
{
    expectChanges({
        {"of a key", "[s]\nk=v\n\n# old\nl=w\n", setComment("s", "l", "# new"),
         "[s]\nk=v\n\n# new\nl=w\n"},
        {"of two lines", "[s]\nk=v\n\n# old\n# x\nl=w\n", setComment("s", "l", "# new"),
         "[s]\nk=v\n\n# new\nl=w\n"},
        {"of a stanza", "[s]\nk=v\n\n# old\n[t]\n", setComment("t", nullptr, "# new"),
         "[s]\nk=v\n\n# new\n[t]\n"},
        {"of the file", "# old\n\n[s]\n", setComment(nullptr, nullptr, "# new"), "# new\n\n[s]\n"},
        {"above a removed key", "[s]\n\nk=v\nl=w\n",
         [](Store& store) {
             store.deleteKey("s", "k");
             store.setComment("s", "l", "# c");
         },
         "[s]\n\n# c\nl=w\n"},
    });
}

TEST_F(KeptLinesComments, NewLinesAtTheTopEndAsTheOthers)
{
    expectChanges({
        {"a comment of the file", "[s]\r\nk=v\r\n", setComment(nullptr, nullptr, "# c"),
         "# c\r\n\r\n[s]\r\nk=v\r\n"},
        {"a stanza", "[s]\r\nk=v\r\n",
         [](Store& store) {
             store.deleteStanza("s");
             store.setValue("t", "m", "1");
         },
         "[t]\r\nm=1\r\n"},
    });
}
