#ifndef SURFACE_INSPECTOR_PROGRESS_H
#define SURFACE_INSPECTOR_PROGRESS_H

#include <chrono>
#include <cstddef>
#include <string>

namespace inspector
{

/// A progress bar on the standard error stream, if that is a terminal, for a step that has lasted longer than a
/// second. The destructor wipes it away.
class Progress
{
public:
    /// Begins a step that consists of `total` parts.
    Progress(std::string step, std::size_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// One more part is done.
    void advance();

private:
    using Clock = std::chrono::steady_clock;

    void draw_() const;

    std::string step_;
    std::size_t total_;
    std::size_t done_ = 0;
    bool terminal_;
    bool drawn_ = false;
    Clock::time_point nextDrawing_;
};

} // namespace inspector

#endif
