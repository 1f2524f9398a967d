#include "postfix/maps/database_helper.h"

#include "postfix/maps/change_lock.h"
#include "postfix/maps/data_stream_filter.h"
#include "postfix/maps/indexed_file.h"
#include "postfix/maps/map_names.h"
#include "postfix/tools/postmap_output.h"
#include "postfix/tools/tool_result.h"
#include "process/pipe.h"
#include "util/autoclean_ofstream.h"
#include "util/errors.h"
#include "util/mapped_output.h"
#include "util/mk_lock.h"

#include <exception>
#include <ostream>

#include <sys/wait.h>

namespace orvek::mail::postfix {

namespace {

using process::Pipe;

// A pipe that runs postmap and collects its diagnostics.
Pipe postmap(std::vector<std::string> const& arguments, std::string& diagnostics)
{
    process::Parameters<process::PipeProcessFlags> stage("/usr/sbin/postmap");
    stage.args.insert(stage.args.end(), arguments.begin(), arguments.end());
    Pipe pipe;
    pipe.append(stage);
    pipe.stderrMode = process::Capture;
    pipe.stderrReceiver = process::makeStringReceiver(diagnostics);
    return pipe;
}

// postmap exits non-zero, and in silence, when a key is not there.
void requireRemoval(int status, std::string const& diagnostics)
{
    if (WIFSIGNALED(status) || (hasFailed(status) && !checkOutput(diagnostics, false)))
        throw PostfixDatabaseError(diagnostics);
}

// Whether the map has the key with a value that is not the record's.
bool hasOther(std::string const& map, std::pair<std::string, std::string> const& record)
{
    std::string diagnostics;
    std::string value;
    Pipe pipe = postmap({"-q", record.first, map}, diagnostics);
    pipe.stdinMode = process::DevNull;
    pipe.stdoutMode = process::Capture;
    pipe.stdoutReceiver = process::makeStringReceiver(value);
    int const status = pipe.run();
    requireRemoval(status, diagnostics);
    return !hasFailed(status) && value != record.second + '\n';
}

void removeKey(std::string const& map, std::string const& key)
{
    std::string diagnostics;
    Pipe pipe = postmap({"-d", key, map}, diagnostics);
    pipe.stdinMode = process::DevNull;
    requireRemoval(pipe.run(), diagnostics);
}

// The text source of a map, which raises when it cannot be written. A record at a time goes into
// it, so it is written as memory where that can be done and through the stream's own buffer
// elsewhere.
class TextFile : public AutocleanOFStream
{
public:
    explicit TextFile(std::string const& path) : AutocleanOFStream(path), mapped(path)
    {
        exceptions(failbit | badbit);
        if (mapped.is_open())
            std::ios::rdbuf(&mapped);
        else
            emptyAgain();
    }

    // To be called at the end of the writing, for a failure to be seen.
    void finish()
    {
        if (mapped.is_open() && !mapped.finish())
            setstate(failbit);
        close();
    }

private:
    // A mapping that failed may have made the file longer.
    void emptyAgain()
    {
        close();
        open(path());
    }

    MappedOutput mapped;
};

// Keeps the first exception of a receiver until the run is over: a pipe that is left by one
// does not wait for its program.
class Postponed
{
public:
    template<class Code>
    void attempt(Code const& code)
    {
        if (raised)
            return;
        try {
            code();
        } catch (...) {
            raised = std::current_exception();
        }
    }

    void raise() const
    {
        if (raised)
            std::rethrow_exception(raised);
    }

private:
    std::exception_ptr raised;
};

// How much of a dump, in chunks as the pump gives them, goes with a piece of the copy. A pipe holds
// twice as much, so postmap is not kept waiting.
constexpr int chunks_per_piece = 32;

void dump(std::string const& map, RecordFilter const& filter, std::ostream& out,
          IndexedFileCopy& copy)
{
    std::string diagnostics;
    Pipe pipe = postmap({"-s", map}, diagnostics);
    pipe.stdinMode = process::DevNull;
    pipe.stdoutMode = process::Capture;
    database::DataStreamFilter<RecordFilter> lines(filter, out);
    Postponed failure;
    int chunks = 0;
    pipe.stdoutReceiver = [&](std::vector<char> const& chunk) {
        failure.attempt([&] {
            lines.filterChunk(chunk);
            if (++chunks % chunks_per_piece == 0)
                copy.proceed();
        });
    };
    int const status = pipe.run();
    failure.raise();
    requireSuccess(status, diagnostics);
    lines.finish();
}

void rebuild(std::vector<std::string> const& arguments, IndexedFileCopy& copy)
{
    copy.complete();
    std::string diagnostics;
    requireSuccess(postmap(arguments, diagnostics).run(), diagnostics);
    copy.dismiss();
}

} // namespace

void DatabaseHelper::addRecord(std::string const& map, std::string const& key,
                               std::string const& value)
{
    std::pair<std::string, std::string> const record(key, value);
    addRecords(map, &record, &record + 1);
}

void DatabaseHelper::removeRecord(std::string const& map, std::string const& key)
{
    ChangeLock const changes(map);
    removeKey(map, key);
}

// postmap removes by the key alone, so a record with another value must not come before it, nor
// between the look and the removal.
void DatabaseHelper::removeRecord(std::string const& map,
                                  std::pair<std::string, std::string> const& record)
{
    ChangeLock const changes(map);
    if (!hasOther(map, record))
        removeKey(map, record.first);
}

void DatabaseHelper::appendText(std::vector<char>& text, std::string const& part)
{
    text.insert(text.end(), part.begin(), part.end());
}

void DatabaseHelper::feedAdditions(std::string const& map, TextSource const& records)
{
    ChangeLock const changes(map);
    std::string diagnostics;
    Pipe pipe = postmap({"-r", "-i", map}, diagnostics);
    pipe.stdinMode = process::Capture;
    pipe.stdinSource = records;
    requireSuccess(pipe.run(), diagnostics);
}

void DatabaseHelper::feedRemovals(std::string const& map, TextSource const& keys)
{
    ChangeLock const changes(map);
    std::string diagnostics;
    Pipe pipe = postmap({"-d", "-", map}, diagnostics);
    pipe.stdinMode = process::Capture;
    pipe.stdinSource = keys;
    requireRemoval(pipe.run(), diagnostics);
}

void DatabaseHelper::rewrite(std::string const& map, TextSource const& records)
{
    MKLock const lock(mapPath(map));
    ChangeLock const changes(map);
    TextFile out(mapPath(map));
    std::vector<char> line;
    for (bool more = !records.empty(); more; line.clear()) {
        more = records(line);
        out.write(line.data(), static_cast<std::streamsize>(line.size()));
    }
    out.finish();
    IndexedFileCopy copy(indexedFileOf(map));
    rebuild({"-r", map}, copy);
}

void DatabaseHelper::rewriteFiltered(std::string const& map, RecordFilter const& filter)
{
    MKLock const lock(mapPath(map));
    ChangeLock const changes(map);
    TextFile out(mapPath(map));
    IndexedFileCopy copy(indexedFileOf(map));
    dump(map, filter, out, copy);
    out.finish();
    rebuild({map}, copy);
}

} // namespace orvek::mail::postfix
