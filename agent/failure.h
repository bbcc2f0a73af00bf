#ifndef SORVANIC_AGENT_FAILURE_H
#define SORVANIC_AGENT_FAILURE_H

#include <stdexcept>
#include <string>

namespace agent {

/// A command cannot do its work. The text tells the user, without a line end, what is missing or wrong and
/// what to do about it.
class failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The answer is no, and sorvanic works: there is no such session, or it does not do that.
class refusal : public failure {
public:
    using failure::failure;
};

} // namespace agent

#endif
