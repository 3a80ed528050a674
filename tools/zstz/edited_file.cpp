#include "edited_file.h"

#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/dialects/line_rules.h>
#include <Z/lines/unified_diff.h>
#include <Z/store/journaled_file.h>
#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>

#include "backup.h"
#include "busy.h"
#include "edit_lock.h"
#include "failures.h"
#include "key_lines.h"
#include "output.h"
#include "problems.h"

namespace {

using zstore::JournaledFile;

// Runs a function of the library's store, with the exceptions of the library.
template <class Action>
auto translateErrors(Action action)
{
    try {
        return action();
    } catch (zfiles::IoError const& failure) {
        throw ZPropertiesIOException_6_0(failure.file.c_str(), failure.callName(), failure.error);
    }
}

std::string readFile(std::string const& path)
{
    return translateErrors(
        [&] { return std::string(JournaledFile(path.c_str(), JournaledFile::Mode::load).text()); });
}

std::string toString(ZBuffer_6_0 const& buffer)
{
    return buffer.getLength() == 0
               ? std::string()
               : std::string(static_cast<char const*>(buffer.getBuffer()), buffer.getLength());
}

}  // namespace

EditedFile::EditedFile(Request const& request)
    : request_(request), store_(chooseDialect(request, request.file))
{
    std::string const& path = request.file;
    if (request.normalise && !store_.isStanzaFile())
        throw Failure{exitRefused,
                      path,
                      {"only stanza files have a normal form",
                       "leave out --normalise, or pass --dialect stanza"}};
    if (!request.normalise)
        store_.setAttributes(ZPCache_6_0::keepComments | ZPCache_6_0::keepLines, nullptr);
    isNew_ = path != kStandardInput && access(path.c_str(), F_OK) != 0 && errno == ENOENT;
    if (isNew_ && !request.create)
        throw Failure{
            exitNoAccess,
            path,
            {"cannot open: No such file or directory", "check the path, or pass --create"}};
    if (isNew_)
        store_.loadText(nullptr, 0);
    else if (path == kStandardInput)
        loadText(original_ = readStandardInput(), store_);
    else
        loadOnce(path, store_);
    if (zlines::SharedText const kept = keptText(store_))
        original_ = kept->text;
    else if (!isNew_ && path != kStandardInput)
        original_ = readFile(path);
    originalSecrets_ = secrets();
}

void EditedFile::willChange(std::string const& stanza, std::string const& key, bool removesLines)
{
    changes_.push_back({stanza, key, removesLines});
}

std::string EditedFile::text() const
{
    ZBuffer_6_0 buffer;
    store_.storeText(buffer);
    return toString(buffer);
}

// Collects the identities of keys; "" if a comment has the first line of a value with an open
// quote.
void EditedFile::findMarkedKeys(std::string const& text)
{
    zdialects::LineRules const rules(keptText(store_)->dialect);
    std::string const mark(rules.dialect().ownComment());
    std::string const marks = mark + mark;
    for (size_t at = text.find(marks); at != text.npos; at = text.find(marks, at)) {
        std::string_view line = std::string_view(text).substr(at);
        line = line.substr(0, line.find_first_of("\r\n"));
        at += line.size();
        while (line.starts_with(mark))
            line.remove_prefix(mark.size());
        zdialects::LineRules::LoneLine const lone = rules.readAlone(line);
        if (!lone.name.empty())
            markedKeys_->insert(rules.keyIdentity(lone.name));
        else if (lone.kind == zlines::otherLine && line.find('=') != line.npos)
            markedKeys_->insert("");
    }
}

bool EditedFile::mayHaveSeveralMarks(std::string const& key)
{
    zlines::SharedText const kept = keptText(store_);
    if (kept == nullptr)
        return false;
    if (!markedKeys_) {
        markedKeys_.emplace();
        findMarkedKeys(isText_ ? text() : original_);
    }
    std::string const identity = zdialects::LineRules(kept->dialect).keyIdentity(key);
    return markedKeys_->contains(identity) || markedKeys_->contains("");
}

bool EditedFile::hasMixedLines(std::string const& stanza, std::string const& key)
{
    zlines::SharedText const kept = keptText(store_);
    if (kept == nullptr || store_.switches().keyAlone != zdialects::KeyAlone::option)
        return false;
    if (!mixedKeys_)
        mixedKeys_.emplace(kept->text, kept->dialect);
    zdialects::LineRules const rules(kept->dialect);
    return mixedKeys_->contains(rules.stanzaIdentity(stanza), rules.keyIdentity(key));
}

// Returns the obfuscated values, as a companion file has them.
std::string EditedFile::secrets() const
{
    if (store_.contents().obfuscatedItemCount() == 0)
        return {};
    ZBuffer_6_0 buffer;
    store_.contents().be_write_obfuscated(buffer);
    return toString(buffer);
}

void EditedFile::setText(std::string const& text)
{
    ZBuffer_6_0 secrets;
    ZSCFData_6_0& cache = store_.contents();
    bool const hasSecrets = cache.obfuscatedItemCount() > 0;
    if (hasSecrets)
        cache.be_write_obfuscated(secrets);
    cache.clear();
    cache.readText(request_.file.c_str(), text.data(), text.size());
    if (hasSecrets)
        cache.be_read_obfuscated(secrets);
    isText_ = true;
    markedKeys_.reset();
    mixedKeys_.reset();
}

bool EditedFile::isChanged() const
{
    return text() != original_ || secrets() != originalSecrets_;
}

bool EditedFile::touches(ZStanzaProblem_6_0 const& problem) const
{
    std::string const stanza = toStdString(problem.stanza());
    return std::any_of(changes_.begin(), changes_.end(),
                       [&](Change const& change) { return change.stanza == stanza; });
}

bool EditedFile::removes(ZStanzaProblem_6_0 const& problem) const
{
    std::string const stanza = toStdString(problem.stanza()), key = toStdString(problem.key());
    return std::any_of(changes_.begin(), changes_.end(), [&](Change const& change) {
        return change.removesLines && change.stanza == stanza &&
               (change.key.empty() || change.key == key);
    });
}

// A line that is not read completely cannot be changed. A normalising store writes no byte that the
// library has not read.
void EditedFile::requireKeptLines() const
{
    if (isNew_ || !store_.isStanzaFile())
        return;
    using Cause = ZStanzaProblem_6_0::Cause;
    bool const isNormalised = request_.normalise;
    Problems const problems =
        request_.file == kStandardInput ? Problems::ofText(original_) : Problems(request_.file, 0);
    for (bool const isDropped : {false, true})
        for (unsigned i = 0; i < problems.size(); ++i) {
            ZStanzaProblem_6_0 const& problem = problems[i];
            Cause const cause = problem.cause();
            bool const isPartial = cause == Cause::splitLine || cause == Cause::zeroByte;
            bool const isLost = (cause == Cause::droppedLine && !removes(problem)) ||
                                cause == Cause::omitted;  // perhaps a dropped line
            if (isDropped ? isNormalised && isLost
                          : isPartial && (isNormalised || touches(problem)))
                throw Failure{exitRefused,
                              nameLine(request_.file, problem.line(), problem.column()),
                              splitText("not saved: " + textOf(problem))};
        }
}

void EditedFile::printDifference(std::string const& text) const
{
    std::string const diff = zlines::formatUnifiedDiff(
        original_, text, isNew_ ? "/dev/null" : patchPath(path()), patchPath(path()));
    if (secrets() != originalSecrets_ && !request_.quiet)
        fprintf(stderr, "zstz: %s: note: the obfuscated values would change\n",
                toPrintable(path()).c_str());
    fwrite(diff.data(), 1, diff.size(), stdout);
}

// Stores the text; the companion stays. If another program has changed the file, this fails: a
// merge could place the comments that setText() has changed elsewhere.
void EditedFile::storeText(std::string const& text) const
{
    char const* const path = request_.file.c_str();
    translateErrors([&] {
        JournaledFile file(path, JournaledFile::Mode::store);
        if (file.text() != original_)
            throw zfiles::IoError{path, zfiles::FailedCall::store, ESTALE};
        file.skipUnchanged();
        request_.replace ? file.replace(text, {}) : file.commit(text, {});
    });
}

// Stores the old contents under another name. Obfuscated values get a companion of their own.
void EditedFile::storeCopy() const
{
    storeBackup(request_.file, request_.backupSuffix, original_);
    if (originalSecrets_.empty())
        return;
    std::string const path = request_.file + request_.backupSuffix;
    try {
        Store copy;
        copy.setAttributes(ZPCache_6_0::keepComments | ZPCache_6_0::keepLines, nullptr);
        std::string bytes = originalSecrets_;
        ZBuffer_6_0 secrets(bytes.size(), bytes.data());
        copy.contents().readText(path.c_str(), original_.data(), original_.size());
        copy.contents().be_read_obfuscated(secrets);
        copy.store(path.c_str());
    } catch (...) {
        unlink(path.c_str());  // without its companion, the copy cannot be read
        throw;
    }
}

// Returns whether only the store needs the text: store() detects changes.
bool EditedFile::isStoredDirectly() const
{
    return !request_.dryRun && request_.file != kStandardInput && !request_.normalise &&
           request_.backupSuffix.empty() && !isText_ && access(request_.file.c_str(), W_OK) == 0;
}

void EditedFile::storeAll()
{
    store_.setReplacing(request_.replace);
    store_.store(request_.file.c_str());
}

void EditedFile::finish()
{
    requireKeptLines();
    if (isStoredDirectly())
        return storeAll();
    std::string const after = text();
    if (request_.dryRun)
        return printDifference(after);
    if (request_.file == kStandardInput) {
        fwrite(after.data(), 1, after.size(), stdout);
        return;
    }
    bool const changesSecrets = secrets() != originalSecrets_;
    bool const isSame = after == original_ && !changesSecrets && !isNew_;
    // A file that can be written is stored although it stays the same: that completes the store of
    // a crashed writer.
    if (isSame && (request_.normalise || access(request_.file.c_str(), W_OK) != 0))
        return;
    if (!request_.backupSuffix.empty() && !isNew_ && !isSame)
        storeCopy();
    if (isText_ && !changesSecrets)
        return storeText(after);
    storeAll();
}

int runChange(Request const& request, std::function<void(EditedFile&, Request const&)> const& apply)
{
    auto const change = [&] {
        EditedFile file(request);
        apply(file, request);
        file.finish();
    };
    if (request.file == kStandardInput) {
        change();
        return exitDone;
    }
    Deadline const deadline(request.wait);
    EditLock const lock(request.file, deadline);
    retryWhileBusy(deadline, change);
    return exitDone;
}
