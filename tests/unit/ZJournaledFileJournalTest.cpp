#include <Z/store/journaled_file.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "JournalForm.h"
#include "JournaledFileFixture.h"

using ZJournaledFileJournal = JournaledFileFixture;

TEST_F(ZJournaledFileJournal, LoadFailsIfTheJournalCannotBeRead)
{
    // Find the call after which the text is torn: it is useless without its journal.
    int torn = 0;
    for (int call = 1; torn == 0; ++call) {
        put(kLong);
        ASSERT_TRUE(storeUpTo(call, kShort));
        if (directory_.read("conf") != kLong.text && directory_.read("conf") != kShort.text)
            torn = call;
    }
    int raised = 0;
    bool reached = true;
    for (int call = 1; reached; ++call) {
        SCOPED_TRACE(call);
        CallPlan failing;
        failing.failAt = call;
        failing.error = EMFILE;
        try {
            CallRecorder const watch(failing);
            EXPECT_EQ(kShort, load());
        } catch (zstore::JournaledFile::IoError const& failure) {
            EXPECT_EQ(EMFILE, failure.error);
            ++raised;
        }
        reached = !callPlan.failed.empty();
    }
    EXPECT_LT(8, raised);
    // Nor does the next store take it for another program's text.
    for (int call = 1, died = 1; died != 0; ++call) {
        put(kLong);
        storeUpTo(torn, kShort);
        died = storeUpTo(1000, kPlain, call) || !(load() == kPlain);
        Pair const found = load();
        EXPECT_TRUE(found == kPlain || found == kShort) << found << " " << call;
    }
}

TEST_F(ZJournaledFileJournal, FailureToExamineTheJournalReportsItsPath)
{
    struct Case {
        char const* call;
        int nth;
        char const* text;
    };
    for (Case const& c :
         {Case{"lstat", 1, "lstat()"}, Case{"open", 1, "open()"}, Case{"fstat", 1, "open()"},
          Case{"fstat", 2, "read()"}, Case{"pread", 1, "read()"}}) {
        SCOPED_TRACE(c.call);
        put({kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion});
        directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
        for (zstore::JournaledFile::Mode use :
             {zstore::JournaledFile::Mode::load, zstore::JournaledFile::Mode::store})
            expectFailure(journal_, c.text, EMFILE, failing(c.call, ".conf.zjn", EMFILE, c.nth),
                          [&] { zstore::JournaledFile(path_.c_str(), use); });
        EXPECT_EQ(kLong, load());
    }
}

TEST_F(ZJournaledFileJournal, OutdatedJournalMustBeRenamedOrInvalidated)
{
    std::string const whole = journalOf(kShort, kLong, "");
    put(kPlain);
    directory_.write(".conf.zjn", whole);
    {
        CallRecorder const watch(failing("rename", ".conf.zjn"));
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
    }
    EXPECT_EQ(".conf.zjn conf", directory_.names());
    EXPECT_EQ(".", journalStateOf(journal_.c_str()));
    // If it is renamed it may stay valid.
    directory_.write(".conf.zjn", whole);
    {
        CallRecorder const watch(failing("pwrite", ".conf.zjn"));
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
    }
    EXPECT_EQ(whole, directory_.read(".conf.zjn.orphan"));
    // If it can be neither renamed nor invalidated, the store fails.
    directory_.write(".conf.zjn", whole);
    CallPlan both;
    both.failing = {{"rename", EACCES}, {"pwrite", EIO}};
    expectFailure(journal_, "unlink()", EIO, both, [&] {
        zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::store);
    });
    EXPECT_EQ(whole, directory_.read(".conf.zjn"));
    directory_.write(".conf.zjn", whole);
    CallPlan hidden = failing("open", ".conf.zjn", EACCES, 2);  // it has been read by then
    hidden.failing["rename"] = EACCES;
    expectFailure(journal_, "unlink()", EACCES, hidden, [&] {
        zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::store);
    });
    EXPECT_EQ(whole, directory_.read(".conf.zjn"));
}

TEST_F(ZJournaledFileJournal, StoreFailsIfAnOutdatedJournalCannotBeRemoved)
{
    // The next text would look like a partial rewrite by the journal, and would be lost.
    chmod(directory_.path().c_str(), 0777);
    asNobody([&] {
        std::string const directory = directory_.at("directory");
        std::filesystem::create_directory(directory);
        directory_.write("directory/conf", "0000\n");
        directory_.write("directory/.conf.zjn", journalOf({"0000\n", ""}, {"1111\n", ""}, ""));
        chmod((directory + "/.conf.zjn").c_str(), 0400);
        chmod(directory.c_str(), 0555);
        std::string seen;
        try {
            zstore::JournaledFile file((directory + "/conf").c_str(),
                                       zstore::JournaledFile::Mode::store);
            file.commit(viewOf("1100\n"), zstore::JournaledFile::Companion());
        } catch (zstore::JournaledFile::IoError const& failure) {
            seen = failure.callName();
        }
        chmod(directory.c_str(), 0755);
        return seen == "unlink()" && directory_.read("directory/conf") == "0000\n";
    });
}

TEST_F(ZJournaledFileJournal, ChoosesBetweenFilesAndJournal)
{
    std::string const mixed = kShort.text + kLong.text.substr(kShort.text.size(), 5);
    struct Case {
        char const* name;
        Pair found;
        Pair expected;
        bool orphan;
    };
    Case const cases[] = {
        {"both old: files", kShort, kShort, false},
        {"text new, companion old: journal", {kLong.text, kShort.companion}, kLong, false},
        {"both new: journal", kLong, kLong, false},
        {"text mixed, companion old: journal", {mixed, kShort.companion}, kLong, false},
        {"text mixed, companion new: journal", {mixed, kLong.companion}, kLong, false},
        {"text of another program: files",
         {"else\n", kShort.companion},
         {"else\n", kShort.companion},
         true},
        {"companion of another program: files",
         {kLong.text, compressed("?")},
         {kLong.text, compressed("?")},
         true},
        {"text new, companion missing: files", {kLong.text, ""}, {kLong.text, ""}, true},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        put(c.found);
        directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
        EXPECT_EQ(c.expected, load());
        EXPECT_EQ(c.found.text, directory_.read("conf"));  // load writes nothing
        {
            zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
            EXPECT_EQ(c.expected.text, std::string(file.text().data(), file.text().size()));
        }
        EXPECT_EQ(c.expected, load());
        EXPECT_EQ(c.expected.text, directory_.read("conf"));
        EXPECT_EQ(c.orphan, directory_.names().find(".conf.zjn.orphan") != std::string::npos);
        EXPECT_EQ(std::string::npos, directory_.names().find(".conf.zjn "));
        std::filesystem::remove(directory_.at(".conf.zjn.orphan"));
    }
}

// Two files may share a companion: after a crashed store of one, a store of the other changes it.
TEST_F(ZJournaledFileJournal, TornTextIsNotLoadedWithAnotherFilesCompanion)
{
    std::string const mixed = kShort.text + kLong.text.substr(kShort.text.size(), 5);
    std::string const journal = journalOf(kShort, kLong, companion_);
    for (Pair const& found : {Pair{mixed, compressed("?")}, Pair{mixed, ""}}) {
        put(found);
        directory_.write(".conf.zjn", journal);
        expectFailure(journal_, "access()", EPERM, CallPlan(), [&] { load(); });
        expectFailure(journal_, "access()", EPERM, CallPlan(), [&] { store(kPlain); });
        EXPECT_EQ(mixed, directory_.read("conf"));
        EXPECT_EQ(journal, directory_.read(".conf.zjn"));
        EXPECT_EQ(found.companion.empty() ? ".conf.zjn conf" : ".conf.zjn conf conf.obf",
                  directory_.names());
        // The journal is valid again with one of the two companions that it describes.
        directory_.write("conf.obf", kLong.companion);
        EXPECT_EQ(kLong, load());
    }
}

TEST_F(ZJournaledFileJournal, AddedOrRemovedCompanionIsOldOrNew)
{
    struct Case {
        char const* name;
        Pair before;
        Pair after;
        std::string companion;  // found with the new text
        bool counts;
    };
    Case const cases[] = {
        {"comes, and is not there yet", kPlain, kLong, "", true},
        {"comes, and is there", kPlain, kLong, kLong.companion, true},
        {"comes, and another is there", kPlain, kLong, compressed("?"), false},
        {"goes, and is there still", kLong, kPlain, kLong.companion, true},
        {"removed, and missing", kLong, kPlain, "", true},
        {"goes, and another is there", kLong, kPlain, compressed("??"), false},
        {"changes, and another is there", kShort, kLong, compressed("?"), false},
        {"changed, and missing", kShort, kLong, "", false},
        {"changed, unchanged text", kShort, {kShort.text, kLong.companion}, kShort.companion, true},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Pair const found = {c.after.text, c.companion};
        put(found);
        directory_.write(".conf.zjn", journalOf(c.before, c.after, companion_));
        EXPECT_EQ(c.counts ? c.after : found, load());
    }
}

TEST_F(ZJournaledFileJournal, CompanionRemovedByTheJournalIsMissing)
{
    put({kPlain.text, kLong.companion});
    directory_.write(".conf.zjn", journalOf(kLong, kPlain, companion_));
    zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::load);
    expectFailure(companion_, "mapFile()", EINVAL, CallPlan(),
                  [&] { file.readCompanion(companion_.c_str()); });
}

TEST_F(ZJournaledFileJournal, EveryInterruptedRewriteIsRecognised)
{
    // Writes from the start, truncation and growth, blocks in any order, and the zero bytes that
    // truncation shows for a moment.
    Pair const pairs[][2] = {{kShort, kLong},
                             {kLong, kShort},
                             {kLong, {"", ""}},
                             {{"", ""}, kLong},
                             {{"[a]\nkey=1\nend=9\n", ""}, {"[a]\nkey=234\nend=9\n", ""}},
                             {{"[a]\nkey=1111\nend=9\n", ""}, {"[a]\nkey=1\nend=9\n", ""}},
                             {{"[a]\nkey=123\nend=9\n", ""}, {"[a]\nkey=456\nend=9\n", ""}}};
    for (auto const& pair : pairs) {
        std::string const& before = pair[0].text;
        std::string const& after = pair[1].text;
        size_t const longer = std::max(before.size(), after.size());
        size_t const shorter = std::min(before.size(), after.size());
        for (size_t length = shorter; length <= longer; ++length)
            for (size_t done = 0; done <= length; ++done)
                for (bool zeroes : {false, true}) {
                    std::string text;
                    for (size_t i = 0; i < length; ++i) {
                        bool const isNew = i < done;
                        if (zeroes && i >= shorter && i >= done)
                            text += '\0';
                        else if (isNew ? i < after.size() : i >= before.size())
                            text += i < after.size() ? after[i] : '\0';
                        else
                            text += before[i];
                    }
                    directory_.write("conf", text);
                    directory_.write(".conf.zjn", journalOf({before, ""}, {after, ""}, ""));
                    std::string const expected = text == before && before != after ? before : after;
                    zstore::JournaledFile const file(path_.c_str(),
                                                     zstore::JournaledFile::Mode::load);
                    ASSERT_EQ(expected, std::string(file.text().data(), file.text().size()))
                        << length << " " << done << " " << zeroes;
                }
    }
}

TEST_F(ZJournaledFileJournal, TextChangedOutsideTheStoredRangeIsAnEdit)
{
    struct Case {
        char const* before;
        char const* after;
        std::string found;
    };
    Case const cases[] = {{"aaa", "abcde", "abcdX"},
                          {"aaa", "abcde", "aaaX"},
                          {"aaa", "abcde", std::string("a\0cde", 5)},
                          {"aaa", "abc", std::string("a\0c", 3)},
                          {"aaa", "abc", std::string("abc\0", 4)},
                          {"aaa", "abc", "ab"},
                          {"aaa", "abcde", "ab"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=2\nc=1\n", "a=3\nb=2\nc=1\n"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=2\nc=1\n", "a=1\nb=1\nc=3\n"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=22\nc=1\n", "a=3\nb=22\nc=1\n"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=22\nc=1\n", "a=1\nb=22\nc=3\n"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=2\nc=1\n", "a=1\nb=2\nc=1\nd=1\n"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=2\nc=1\n", "a=1\nb=1\n"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=2\nc=1\n", "a=1\n"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=2\nc=1\n", ""}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.found);
        directory_.write("conf", c.found);
        directory_.write(".conf.zjn", journalOf({c.before, ""}, {c.after, ""}, ""));
        EXPECT_EQ((Pair{c.found, ""}), load());
        {
            zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
        }
        EXPECT_EQ(".conf.zjn.orphan conf", directory_.names());
        EXPECT_EQ(c.found, directory_.read("conf"));
        std::filesystem::remove(directory_.at(".conf.zjn.orphan"));
    }
}

TEST_F(ZJournaledFileJournal, DamagedJournalsAreIgnored)
{
    Pair const torn = {kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion};
    std::string const whole = journalOf(kShort, kLong, companion_);
    put(torn);
    directory_.write(".conf.zjn", whole);
    EXPECT_EQ(kLong, load());
    for (size_t length = 0; length < whole.size(); ++length) {
        directory_.write(".conf.zjn", whole.substr(0, length));
        ASSERT_EQ(torn, load()) << length;
    }
    for (size_t i = 0; i < whole.size(); ++i) {
        std::string damaged = whole;
        damaged[i] = static_cast<char>(damaged[i] ^ 0x10);
        directory_.write(".conf.zjn", damaged);
        ASSERT_EQ(torn, load()) << i;
    }
    directory_.write(".conf.zjn", whole + "x");
    EXPECT_EQ(torn, load());
    // Lengths that do not add up, or only modulo 2^64, with a valid checksum.
    auto const loadWith = [&](std::string wrong) {
        putNumber(wrong, crcOf(wrong), 4);
        directory_.write(".conf.zjn", wrong);
        return load();
    };
    std::string const all = whole.substr(0, whole.size() - 4);
    EXPECT_EQ(kLong, loadWith(all));
    EXPECT_EQ(torn, loadWith(all + "x"));
    for (size_t at : {8, 16, 24, 32, 40, 48, 76}) {
        std::string wrong = all;
        wrong[at + 3] = '\x7F';
        EXPECT_EQ(torn, loadWith(wrong)) << at;
    }
    std::string wrong = all;
    wrong[24 + 7] = wrong[48 + 7] = '\x80';
    EXPECT_EQ(torn, loadWith(wrong));
    wrong = all;
    wrong[6] = '3';  // an unknown version
    EXPECT_EQ(torn, loadWith(wrong));
    // A path with a zero byte.
    std::string const longer = journalOf(kShort, kLong, companion_ + '\0');
    EXPECT_EQ(torn, loadWith(longer.substr(0, longer.size() - 4)));
    // A suffix that stays although the middles differ in length.
    directory_.write("conf", "bbaaE");
    wrong = journalOf({"aaaaE", ""}, {"bbE", ""}, "");
    wrong.resize(wrong.size() - 5);
    std::string sum;
    putNumber(sum, adlerOf("E"), 4);
    wrong.replace(72, 4, sum);
    std::swap(wrong[16], wrong[40]);
    EXPECT_EQ("bbaaE", loadWith(wrong).text);
    // Prefix and suffix whose lengths add up to the file only modulo 2^64.
    directory_.write("conf", "-abb+");
    wrong = journalOf({"-aaa+", ""}, {"-bbb+", ""}, "");
    wrong.resize(wrong.size() - 4);
    EXPECT_EQ("-bbb+", loadWith(wrong).text);
    wrong[8 + 7] = wrong[16 + 7] = '\x80';
    EXPECT_EQ("-abb+", loadWith(wrong).text);
}

TEST_F(ZJournaledFileJournal, LargeJournalIsWrittenInPieces)
{
    // The disk starts to write each piece immediately. Failures to start are ignored.
    size_t const piece = 512 << 10;
    struct Case {
        size_t length;
        int starts;
    };
    for (Case const& c : {Case{piece - 1, 0}, Case{piece, 2}, Case{2 * piece + 1, 4}}) {
        SCOPED_TRACE(c.length);
        std::string before, after;
        for (size_t i = 0; i < c.length; ++i) {
            before += static_cast<char>('a' + i % 23);
            after += static_cast<char>('A' + i % 19);
        }
        put({before, ""});
        std::string journal;
        {
            CallRecorder const watch(keepingJournal(journal));
            storeText(after);
            EXPECT_EQ(c.starts, watch.starts);
        }
        EXPECT_TRUE(journal == journalOf({before, ""}, {after, ""}, ""));
        EXPECT_TRUE(after == directory_.read("conf"));
        directory_.write("conf", after.substr(0, c.length / 2) + before.substr(c.length / 2));
        directory_.write(".conf.zjn", journal);
        EXPECT_TRUE((Pair{after, ""}) == load());
    }
}

TEST_F(ZJournaledFileJournal, JournalWhoseChecksumIsZeroIsInvalidatedToo)
{
    // The last four bytes of the new text, which end the journal, make the CRC-32 0.
    std::string const before(40, 'o');
    std::string after(36, 'n');
    std::string const journal = journalOf({before, ""}, {after + "1234", ""}, "");
    after += bytesToZeroCrc(journal.substr(0, journal.size() - 8));
    std::string whole = journalOf({before, ""}, {after, ""}, "");
    ASSERT_EQ(0u, crcOf(whole.substr(0, whole.size() - 4)));
    put({before, ""});
    std::string written;
    {
        CallRecorder const watch(keepingJournal(written));
        storeText(after);
        EXPECT_EQ(".", watch.endings);
    }
    EXPECT_EQ(whole, written);
    // If a power cut restores it after the store, an edit is not taken for an interrupted rewrite.
    Pair const edited = {before.substr(0, 20) + after.substr(20), ""};
    put(edited);
    directory_.write(".conf.zjn", whole);
    EXPECT_EQ(after, load().text);
    directory_.write(".conf.zjn", whole.replace(whole.size() - 4, 4, 4, '\0'));
    EXPECT_EQ(edited, load());
}

TEST_F(ZJournaledFileJournal, LoadFailsIfTheJournalsCompanionIsForbidden)
{
    // A user that may not open the companion cannot find out whether the journal is valid.
    std::filesystem::create_directory(directory_.at("directory"));
    directory_.write("directory/secrets", kShort.companion);
    directory_.write("conf", kLong.text.substr(0, 2) + kShort.text.substr(2));
    std::string const journal = journalOf(kShort, kLong, directory_.at("directory/secrets"));
    directory_.write(".conf.zjn", journal);
    chmod(path_.c_str(), 0666);
    for (zstore::JournaledFile::Mode use :
         {zstore::JournaledFile::Mode::load, zstore::JournaledFile::Mode::store}) {
        try {
            zstore::JournaledFile const file(path_.c_str(), use);
            ADD_FAILURE();
        } catch (zstore::JournaledFile::IoError const& failure) {
            EXPECT_EQ(directory_.at("directory/secrets"), failure.file);
            EXPECT_STREQ("access()", failure.callName());
            EXPECT_EQ(EPERM, failure.error);
        }
        EXPECT_EQ(journal, directory_.read(".conf.zjn"));
    }
    chmod(path_.c_str(), 0600);
    {
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::load);
        EXPECT_EQ(kLong.text, std::string(file.text().data(), file.text().size()));
    }
    // If the text is the old one, or another program's, the journal does not matter.
    for (std::string const& text : {kShort.text, std::string("else\n")}) {
        directory_.write("conf", text);
        directory_.write(".conf.zjn", journal);
        chmod(path_.c_str(), 0666);
        for (zstore::JournaledFile::Mode use :
             {zstore::JournaledFile::Mode::load, zstore::JournaledFile::Mode::store}) {
            zstore::JournaledFile const file(path_.c_str(), use);
            EXPECT_EQ(text, std::string(file.text().data(), file.text().size()));
        }
    }
}

TEST_F(ZJournaledFileJournal, ImpossibleCompanionInvalidatesTheJournal)
{
    std::string const torn = kLong.text.substr(0, 2) + kShort.text.substr(2);
    directory_.write("plain", "");
    std::filesystem::create_directory(directory_.at("directory"));
    ASSERT_EQ(0, mkfifo(directory_.at("pipe").c_str(), 0600));
    for (char const* name : {"directory", "pipe", "plain/secrets"}) {
        SCOPED_TRACE(name);
        directory_.write(".conf.zjn", journalOf(kShort, kLong, directory_.at(name)));
        directory_.write("conf", kLong.text);
        {
            zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::load);
            EXPECT_EQ(kLong.text, std::string(file.text().data(), file.text().size()));
        }
        directory_.write("conf", torn);
        expectFailure(journal_, "access()", EPERM, CallPlan(), [&] {
            zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::load);
        });
    }
}

TEST_F(ZJournaledFileJournal, LoadFailsIfTheJournalsCompanionCannotBeExamined)
{
    put({kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion});
    directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
    for (char const* call : {"open", "pread", "lstat"}) {
        SCOPED_TRACE(call);
        // Only files that other users may write need lstat().
        chmod(path_.c_str(), strcmp(call, "lstat") == 0 ? 0620 : 0600);
        for (zstore::JournaledFile::Mode use :
             {zstore::JournaledFile::Mode::load, zstore::JournaledFile::Mode::store})
            expectFailure(companion_, "mapFile()", EIO, failing(call, "conf.obf"),
                          [&] { zstore::JournaledFile(path_.c_str(), use); });
    }
    EXPECT_EQ(kLong, load());
}

TEST_F(ZJournaledFileJournal, JournalsThatAnyUserCouldPlantAreIgnored)
{
    Pair const torn = {kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion};
    std::string const whole = journalOf(kShort, kLong, companion_);
    put(torn);
    directory_.write(".conf.zjn", whole);
    // Nor is a torn text taken for a complete one.
    auto const expectRefusal = [&] {
        for (zstore::JournaledFile::Mode mode :
             {zstore::JournaledFile::Mode::load, zstore::JournaledFile::Mode::store})
            expectFailure(journal_, "access()", EPERM, CallPlan(),
                          [&] { zstore::JournaledFile(path_.c_str(), mode); });
        EXPECT_EQ(torn.text, directory_.read("conf"));
        EXPECT_EQ(whole, directory_.read(".conf.zjn"));
    };
    chmod(journal_.c_str(), 0620);
    expectRefusal();
    chmod(journal_.c_str(), 0602);
    expectRefusal();
    chmod(journal_.c_str(), 0644);
    EXPECT_EQ(kLong, load());
    ASSERT_EQ(0, link(journal_.c_str(), directory_.at("second").c_str()));
    expectRefusal();
    std::filesystem::remove(journal_);
    ASSERT_EQ(0, symlink("second", journal_.c_str()));
    EXPECT_EQ(torn, load());
    std::filesystem::remove(journal_);
    ASSERT_EQ(0, mkfifo(journal_.c_str(), 0600));
    EXPECT_EQ(torn, load());
    std::filesystem::remove(journal_);
    ASSERT_EQ(0, mkdir(journal_.c_str(), 0700));
    EXPECT_EQ(torn, load());
    // A journal that the same users may write as the file is trusted.
    std::filesystem::remove(journal_);
    directory_.write(".conf.zjn", journalOf(kShort, kLong, ""));
    chmod(path_.c_str(), 0620);
    chmod(journal_.c_str(), 0620);
    EXPECT_EQ(kLong.text, load().text);
}

TEST_F(ZJournaledFileJournal, JournalsOfOwnerRootAndReaderAreTrusted)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of multiple owners";
    struct Case {
        uid_t owner;  // of the journal
        bool counts;
    };
    Case const cases[] = {{12345, true}, {0, true}, {65534, true}, {54321, false}};
    chmod(directory_.path().c_str(), 0755);
    directory_.write("conf", kLong.text.substr(0, 2) + kShort.text.substr(2));
    directory_.write(".conf.zjn", journalOf(kShort, kLong, ""));
    chmod(path_.c_str(), 0644);
    chmod(journal_.c_str(), 0644);
    ASSERT_EQ(0, chown(path_.c_str(), 12345, 0));
    for (Case const& c : cases) {
        SCOPED_TRACE(c.owner);
        ASSERT_EQ(0, chown(journal_.c_str(), c.owner, 0));
        asNobody([&] {
            if (!c.counts)
                expectFailure(journal_, "access()", EPERM, CallPlan(), [&] {
                    zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::load);
                });
            else
                EXPECT_EQ(
                    kLong.text,
                    zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::load).text());
            return !HasFailure();
        });
    }
}

TEST_F(ZJournaledFileJournal, UnreadableJournalOfAnotherUserLeavesNoTornText)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    std::string const torn = kLong.text.substr(0, 2) + kShort.text.substr(2);
    put({torn, ""});
    directory_.write(".conf.zjn", journalOf(kShort, kLong, ""));
    ASSERT_EQ(0, chown(journal_.c_str(), 54321, 54321));
    for (int error : {EMFILE, ENFILE, ENOMEM, EIO})
        for (zstore::JournaledFile::Mode mode :
             {zstore::JournaledFile::Mode::load, zstore::JournaledFile::Mode::store})
            expectFailure(journal_, "open()", error, failing("open", ".conf.zjn", error),
                          [&] { zstore::JournaledFile(path_.c_str(), mode); });
    EXPECT_EQ(".conf.zjn conf", directory_.names());
    EXPECT_EQ(torn, directory_.read("conf"));
}

TEST_F(ZJournaledFileJournal, JournalReplacedDuringALoadIsIgnored)
{
    std::string const torn = kLong.text.substr(0, 2) + kShort.text.substr(2);
    std::string const second = directory_.at("second");
    for (bool linked : {false, true}) {
        SCOPED_TRACE(linked);
        directory_.write("conf", torn);
        directory_.write(".conf.zjn", journalOf(kShort, kLong, ""));
        bool isReplaced = false;
        CallPlan racing;
        racing.before = [&](SystemCall const& call) {
            if (call.name != "open" || call.path != journal_ || isReplaced)
                return 0;
            isReplaced = true;
            if (linked) {
                EXPECT_EQ(0, rename(journal_.c_str(), second.c_str()));
                EXPECT_EQ(0, symlink(second.c_str(), journal_.c_str()));
            } else {
                EXPECT_EQ(0, link(journal_.c_str(), second.c_str()));
            }
            return 0;
        };
        std::string found;
        try {
            CallRecorder const watch(racing);
            zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::load);
            found.assign(file.text().data(), file.text().size());
        } catch (zstore::JournaledFile::IoError const& failure) {
            EXPECT_EQ(journal_, failure.file);
            found = failure.callName();
        }
        EXPECT_EQ(linked ? "open()" : "access()", found);
        std::filesystem::remove(journal_);
        std::filesystem::remove(second);
    }
}

TEST_F(ZJournaledFileJournal, JournalIsInvalidBeforeItIsRemoved)
{
    for (Shape const& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        put(shape.before);
        // A crashed writer's journal: complete, but not renamed.
        directory_.write(".conf.zjn.new", journalOf(shape.before, shape.after, companion_));
        CallRecorder const watch;
        store(shape.after);
        EXPECT_EQ("..", watch.endings);
    }
    // A journal that does not describe the text is renamed to an orphan.
    put(kPlain);
    directory_.write(".conf.zjn", journalOf(kShort, kLong, ""));
    store(kShort);
    EXPECT_EQ(".", journalStateOf(directory_.at(".conf.zjn.orphan").c_str()));
    // A journal that was not renamed.
    put(kShort);
    CallPlan failing;
    failing.failing["rename"] = EIO;
    CallRecorder const watch(failing);
    EXPECT_THROW(store(kLong), zstore::JournaledFile::IoError);
    EXPECT_EQ(".", watch.endings);
}

TEST_F(ZJournaledFileJournal, JournalRemovedDuringItsRetirementIsRetired)
{
    put(kShort);
    int looks = 0;
    CallPlan removing;
    removing.after = [&](SystemCall const& call, ssize_t&) {
        if (call.name == "lstat" && nameOf(call) == ".conf.zjn" && ++looks == 2)
            std::filesystem::remove(journal_);
    };
    {
        CallRecorder const watch(removing);
        store(kLong);
        EXPECT_EQ(2, watch.directorySyncs);  // for the names of journal and companion
    }
    EXPECT_EQ(2, looks);  // for one of a crashed writer, and for its own
    EXPECT_EQ(kLong, load());
    EXPECT_EQ("conf conf.obf", directory_.names());
}

TEST_F(ZJournaledFileJournal, RemovalOfAJournalThatCannotBeInvalidatedIsSynced)
{
    put(kPlain);
    CallPlan failing = planOn(XFS_SUPER_MAGIC);
    int writes = 0;
    failing.before = [&](SystemCall const& call) {
        return call.name == "pwrite" && ++writes == 2 ? EIO : 0;  // the first is the text's
    };
    CallRecorder const watch(failing);
    storeText(kLong.text);
    EXPECT_EQ("?", watch.endings);
    EXPECT_EQ(1, watch.directorySyncs);
}

TEST_F(ZJournaledFileJournal, ObstaclesAtTheJournalsNameAreRenamedToOrphans)
{
    struct Case {
        char const* name;
        std::function<void(std::string const&)> plant;
    };
    Case const cases[] = {
        {"directory",
         [](std::string const& path) { std::filesystem::create_directories(path + "/in"); }},
        {"pipe", [](std::string const& path) { mkfifo(path.c_str(), 0600); }},
        {"link", [](std::string const& path) { std::filesystem::create_symlink("conf", path); }},
        {"second name",
         [this](std::string const& path) {
             std::filesystem::create_hard_link(directory_.write("other", "other\n"), path);
         }},
        {"writable by others",
         [this](std::string const& path) {
             directory_.write(".conf.zjn", "others\n");
             chmod(path.c_str(), 0666);
         }},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        put(kShort);
        c.plant(journal_);
        EXPECT_EQ(kShort, load());
        store(kLong);
        EXPECT_EQ(kLong, load());
        EXPECT_EQ(0u, directory_.names().find(".conf.zjn.orphan conf conf.obf"))
            << directory_.names();
        // A directory with the name of a temporary file is renamed too.
        put(kShort);
        std::filesystem::create_directory(directory_.at(".conf.zjn.new"));
        store(kLong);
        EXPECT_EQ(kLong, load());
        std::filesystem::remove(directory_.at("other"));
    }
}

TEST_F(ZJournaledFileJournal, OrphansAreNumberedAndNeverReplaced)
{
    for (char const* name : {".conf.zjn.orphan", ".conf.zjn.orphan.2", ".conf.zjn.orphan.3"}) {
        SCOPED_TRACE(name);
        directory_.write("conf", "else\n");
        std::string const text = "old of " + std::string(name);
        directory_.write(".conf.zjn", journalOf({text, ""}, kLong, ""));
        storeText(kPlain.text);
        EXPECT_NE(std::string::npos, directory_.read(name).find(text));
    }
    EXPECT_EQ(".conf.zjn.orphan .conf.zjn.orphan.2 .conf.zjn.orphan.3 conf", directory_.names());
}

TEST_F(ZJournaledFileJournal, ObstacleThatCannotBeRenamedIsReported)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    chmod(directory_.path().c_str(), 01777);
    directory_.write(".conf.zjn", "root's\n");
    directory_.write("conf", kPlain.text);
    ASSERT_EQ(0, chown(path_.c_str(), 65534, 65534));
    ASSERT_EQ(0, chown(journal_.c_str(), 12345, 65534));
    asNobody([&] {
        expectFailure(journal_, "rename()", EEXIST, CallPlan(), [&] { storeText(kLong.text); });
        return !HasFailure() && load() == kPlain;
    });
    EXPECT_EQ(".conf.zjn conf", directory_.names());
}

TEST_F(ZJournaledFileJournal, PipesAtTheJournalsNameAreNotOpened)
{
    for (char const* name : {".conf.zjn", ".conf.zjn.new", ".conf.obf.new"}) {
        SCOPED_TRACE(name);
        put(kShort);
        ASSERT_EQ(0, mkfifo(directory_.at(name).c_str(), 0600));
        int const fd = open(directory_.at(name).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        store(kLong);
        pollfd pipe = {fd, POLLIN, 0};
        EXPECT_EQ(0, poll(&pipe, 1, 0));  // it would report a writer that has closed the pipe
        close(fd);
        EXPECT_EQ(kLong, load());
        bool const isJournal = strcmp(name, ".conf.zjn") == 0;
        EXPECT_EQ(isJournal ? ".conf.zjn.orphan conf conf.obf" : "conf conf.obf",
                  directory_.names());
    }
}
