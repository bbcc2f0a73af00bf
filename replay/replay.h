#ifndef SORVANIC_REPLAY_REPLAY_H
#define SORVANIC_REPLAY_REPLAY_H

#include <cstddef>
#include <functional>
#include <istream>
#include <stdexcept>
#include <string>

#include "replay/world.h"

namespace replay {

/// A line of the events that could not be replayed, counted from 1 with the blank ones.
class bad_line : public std::runtime_error {
public:
    bad_line(std::size_t number, const std::string& reason) : std::runtime_error(reason), number_(number) {}
    std::size_t number() const { return number_; }

private:
    std::size_t number_;
};

/// Performs the events one by one and hands each answer, as the text of one JSON object, to `print` before
/// the next. Throws bad_line at the first line that cannot be replayed, and std::runtime_error when reading
/// the events fails.
void run(std::istream& events, world& in, const std::function<void(const std::string&)>& print);

} // namespace replay

#endif
