#pragma once

#include <ostream>
#include <sstream>
#include <string>

namespace kvo::testing
{

/** Redirects a standard stream (std::cout, std::cerr) into a string while it lives. */
class StreamCapture
{
public:
    explicit StreamCapture(std::ostream& stream) : stream(stream), saved(stream.rdbuf(captured.rdbuf())) {}
    ~StreamCapture() { stream.rdbuf(saved); }
    StreamCapture(const StreamCapture&) = delete;
    StreamCapture& operator=(const StreamCapture&) = delete;

    std::string GetText() const { return captured.str(); }

private:
    std::ostream& stream;
    std::ostringstream captured;
    std::streambuf* saved;
};

} // namespace kvo::testing
