// reader: appends the contents of a file.
#pragma once

#include <string_view>

#include "../stanza/line_splitter.h"
#include "../stanza/parser.h"
#include "contents.h"

namespace zcache {

// Appends what a file holds to a store, and takes it out again unless finish() was called. What
// comes waits in a short queue, while the memory brings what finding it needs.
class Reader {
public:
    explicit Reader(Store& store);
    Reader(Reader const&) = delete;
    Reader& operator=(Reader const&) = delete;
    ~Reader();

    // Takes over the text that the views point into, of which `bytes` are in use.
    void adopt(Arena::Block& block, size_t bytes);

    // Makes room for about so many lines of each kind.
    void reserve(zstanza::Expected const& lines);

    // Returns a copy of a text that has no room for its terminator.
    std::string_view keep(std::string_view text)
    {
        std::string_view const kept = store_.arena_.add(text);
        kept_ += kept.size() + 1;
        return kept;
    }

    void drop(std::string_view text) { store_.arena_.drop(text); }  // nothing will refer to it

    void addHead(std::string_view name, int lineNumber)
    {
        categoryHash_ = hashOf(name);
        store_.categoryIndex_.prefetch(categoryHash_);
        push({headLine, categoryHash_, name, {}, lineNumber});
    }
    void addComment(std::string_view text) { push({commentLine, 0, text, {}, 0}); }
    void addBlank() { push({blankLine, 0, {}, {}, 0}); }

    // Adds a key to the category of the last head; there must be one.
    void addKey(std::string_view name, std::string_view value)
    {
        uint32_t const hash = hashOf(name, categoryHash_);
        store_.keyIndex_.prefetch(hash);
        push({keyLine, hash, name, value, 0});
    }

    // Returns the first head that repeated another; what came behind it was ignored.
    zstanza::Repetition const& repetition() const { return repetition_; }

    // Enters what waits.
    void flush()
    {
        while (count_ != 0)
            enterFirst();
    }

    // Keeps what went in. Never raises when all of it was flushed.
    void finish();

private:
    struct Waiting {
        LineKind kind;
        uint32_t hash;
        std::string_view text;  // comment, category or key
        std::string_view value;
        int lineNumber;
    };
    static constexpr unsigned kMostWaiting = 16;

    // Where the records ended.
    struct Ends {
        Id categories;
        Id categoryMores;
        Id keys;
        Id keyMores;
        Id values;
        Id lines;
    };

    void push(Waiting const& line)
    {
        if (count_ == kMostWaiting)
            enterFirst();
        waiting_[(first_ + count_++) % kMostWaiting] = line;
    }
    void enterFirst();
    void enterHead(Waiting const& line);
    void enterKey(Waiting const& line);
    void enterComment(Waiting const& line);
    Id append(LineKind kind, uint32_t of);
    void undo();

    Store& store_;
    uint32_t categoryHash_ = 0;  // of the last head that came
    Id category_ = 0;            // of the last head that was entered
    Id const lastLine_;          // what was there before
    Id const lastHead_;
    bool hadComments_ = false;  // the section of that head
    Id lastKeyLine_ = 0;        // else its last key line
    Ends const ends_;
    size_t kept_ = 0;  // bytes of copies
    zstanza::Repetition repetition_ = {{}, 0};
    bool isAdopted_ = false;
    bool isDone_ = false;
    unsigned first_ = 0;  // of those that wait
    unsigned count_ = 0;
    Waiting waiting_[kMostWaiting];
};

}  // namespace zcache
