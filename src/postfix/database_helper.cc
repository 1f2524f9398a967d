#include "postfix/database_helper.h"

#include "postfix/change_lock.h"
#include "postfix/data_stream_filter.h"
#include "postfix/indexed_file.h"
#include "postfix/map_names.h"
#include "postfix/postmap_output.h"
#include "process/pipe.h"
#include "util/autoclean_ofstream.h"
#include "util/errors.h"
#include "util/mk_lock.h"

#include <exception>
#include <fstream>
#include <ostream>
#include <streambuf>

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

bool hasFailed(int status)
{
    return WIFSIGNALED(status) || WEXITSTATUS(status) != 0;
}

void requireSuccess(int status, std::string const& diagnostics)
{
    if (hasFailed(status))
        throw PostfixConfigurationError(diagnostics.empty() ? "unknown error" : diagnostics);
}

// postmap exits non-zero, and in silence, when a key is not there.
void requireRemoval(int status, std::string const& diagnostics)
{
    if (WIFSIGNALED(status) || (hasFailed(status) && !checkOutput(diagnostics, false)))
        throw PostfixDatabaseError(diagnostics);
}

// The text source of a map, which raises when it cannot be written.
class TextFile : public AutocleanOFStream
{
public:
    explicit TextFile(std::string const& path) : AutocleanOFStream(path)
    {
        exceptions(failbit | badbit);
    }
};

// Writes to a file without flushing it: a filter flushes each record, and for the text source,
// which nobody reads before it is closed, that is a system call a record for nothing.
class Unflushed : public std::streambuf
{
public:
    explicit Unflushed(std::filebuf& file_) : file(file_) {}

protected:
    int_type overflow(int_type byte) override
    {
        if (traits_type::eq_int_type(byte, traits_type::eof()))
            return traits_type::not_eof(byte);
        return file.sputc(traits_type::to_char_type(byte));
    }
    std::streamsize xsputn(char const* text, std::streamsize size) override
    {
        return file.sputn(text, size);
    }

private:
    std::filebuf& file;
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

void dump(std::string const& map, RecordFilter const& filter, std::ostream& out)
{
    std::string diagnostics;
    Pipe pipe = postmap({"-s", map}, diagnostics);
    pipe.stdinMode = process::DevNull;
    pipe.stdoutMode = process::Capture;
    database::DataStreamFilter<RecordFilter> lines(filter, out);
    Postponed failure;
    pipe.stdoutReceiver = [&](std::vector<char> const& chunk) {
        failure.attempt([&] { lines.filterChunk(chunk); });
    };
    int const status = pipe.run();
    failure.raise();
    requireSuccess(status, diagnostics);
    lines.finish();
}

void rebuild(std::vector<std::string> const& arguments, IndexedFileCopy& copy)
{
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
    std::string diagnostics;
    Pipe pipe = postmap({"-d", key, map}, diagnostics);
    pipe.stdinMode = process::DevNull;
    requireRemoval(pipe.run(), diagnostics);
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
    out.close();
    IndexedFileCopy copy(indexedFileOf(map));
    rebuild({"-r", map}, copy);
}

void DatabaseHelper::rewriteFiltered(std::string const& map, RecordFilter const& filter)
{
    MKLock const lock(mapPath(map));
    ChangeLock const changes(map);
    TextFile out(mapPath(map));
    Unflushed buffer(*out.rdbuf());
    std::ostream records(&buffer);
    records.exceptions(std::ios::failbit | std::ios::badbit);
    dump(map, filter, records);
    out.close();
    IndexedFileCopy copy(indexedFileOf(map));
    rebuild({map}, copy);
}

} // namespace orvek::mail::postfix
