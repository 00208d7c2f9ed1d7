#include "progress.h"

#include <cstdio>
#include <utility>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace inspector
{

namespace
{

bool standardErrorIsTerminal()
{
#ifdef _WIN32
    return _isatty(_fileno(stderr)) != 0;
#else
    return isatty(STDERR_FILENO) != 0;
#endif
}

} // namespace

Progress::Progress(std::string step, std::size_t total)
    : step_(std::move(step)),
      total_(total),
      terminal_(standardErrorIsTerminal()),
      nextDrawing_(Clock::now() + std::chrono::seconds(1))
{
}

Progress::~Progress()
{
    if (drawn_)
    {
        std::fputs("\r\033[K", stderr);
    }
}

void Progress::advance()
{
    ++done_;
    if (terminal_ && Clock::now() >= nextDrawing_)
    {
        draw_();
        drawn_ = true;
        nextDrawing_ = Clock::now() + std::chrono::milliseconds(100);
    }
}

void Progress::draw_() const
{
    constexpr std::size_t width = 40;
    const std::size_t filled = width * done_ / total_;
    const std::string bar = std::string(filled, '#') + std::string(width - filled, '.');
    std::fprintf(stderr, "\r%s [%s] %3d %%", step_.c_str(), bar.c_str(), static_cast<int>(100 * done_ / total_));
}

} // namespace inspector
