#ifndef SORVANIC_AGENT_FAILURE_H
#define SORVANIC_AGENT_FAILURE_H

#include <stdexcept>
#include <string>
#include <system_error>

namespace agent {

/// Something cannot be done. The text is for the user, without a line end: what is missing or wrong,
/// and what to do about it.
class failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The text of an error number.
inline std::string error_text(int number)
{
    return std::generic_category().message(number);
}

} // namespace agent

#endif
