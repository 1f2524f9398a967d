// walk_step - what the entity walker tells of its progress
//
// Goes to std::clog, and only when ORVEK_INSTALLER_DEBUG is in the environment and not "0".

#ifndef MAILVEK_RESTORE_WALK_STEP_H
#define MAILVEK_RESTORE_WALK_STEP_H

#include <exception>
#include <string>

namespace orvek::mail::restore {

// A line of its own.
void tellProgress(std::string const& line);

// One step, and one line: it begins with the step's name and "...", and ends with " done" or
// with all that failed.
class WalkStep
{
public:
    explicit WalkStep(char const* name, std::string const& item = {});
    ~WalkStep();
    WalkStep(WalkStep const&) = delete;
    WalkStep& operator=(WalkStep const&) = delete;

    // Runs a piece of the step. Whatever it raises ends here.
    template<class Piece>
    void attempt(Piece const& piece)
    {
        try {
            piece();
        } catch (std::exception const& e) {
            fail(e.what());
        } catch (...) {
            fail("unknown error");
        }
    }

private:
    void fail(char const* text);

    bool const told;
    bool failed = false;
};

// A step that is of one piece.
template<class Piece>
void walkStep(char const* name, std::string const& item, Piece const& piece)
{
    WalkStep(name, item).attempt(piece);
}

} // namespace orvek::mail::restore

#endif
