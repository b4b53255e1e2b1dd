// One sink for the workers' console lines: what they are doing (trace) and what went wrong
// (notices). The window prints both to standard output; halden-cli chooses per kind.
#pragma once

#include <sstream>
#include <string>

namespace console {

enum class Destination { StandardOutput, StandardError, Nowhere };

// For the whole process; the defaults are the window's: both kinds on standard output.
void setDestinations(Destination traces, Destination notices);

// Gathers one line and hands it over whole when it goes out of scope, so that lines of
// several threads never interleave in the middle.
class Line {
public:
    explicit Line(bool notice) : notice_(notice) {}
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;
    ~Line();

    template <typename T>
    Line& operator<<(const T& value) {
        text_ << value;
        return *this;
    }

private:
    bool notice_;
    std::ostringstream text_;
};

// `console::trace() << "START RUN FUSION";` (no end of line: the sink adds it).
inline Line trace() { return Line(false); }
inline Line notice() { return Line(true); }

}  // namespace console
