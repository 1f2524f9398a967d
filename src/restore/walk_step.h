// walk_step - reports the progress of the entity walker
//
// Writes to std::clog, only when ORVEK_INSTALLER_DEBUG is in the environment and not "0".
//
// No command calls these; they are for callers to come: WalkStep, WalkStep::fail, tellProgress.

#ifndef MAILVEK_RESTORE_WALK_STEP_H
#define MAILVEK_RESTORE_WALK_STEP_H

#include <exception>
#include <string>

namespace orvek::mail::restore {

// Writes one whole line.
void tellProgress(std::string const& line);

// One step is one line: the step's name and "...", then each failure, or " done".
class WalkStep
{
public:
    explicit WalkStep(char const* name, std::string const& item = {});
    ~WalkStep();
    WalkStep(WalkStep const&) = delete;
    WalkStep& operator=(WalkStep const&) = delete;

    // Runs a piece of the step. Catches everything it raises.
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

// A step of one piece.
template<class Piece>
void walkStep(char const* name, std::string const& item, Piece const& piece)
{
    WalkStep(name, item).attempt(piece);
}

} // namespace orvek::mail::restore

#endif
