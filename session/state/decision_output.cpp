#include "session/state/decision_output.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include <fmt/format.h>

#include "host/text.h"
#include "session/state/trouble.h"

namespace session {

decision_output decision_output::connected(const char* socket_path, form as)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socket_path, sizeof address.sun_path - 1);
    host::unique_fd to(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!to || connect(to.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw trouble(fmt::format("decision log {}: {}; is its daemon running? Else name a file with "
                                  "--decisions",
                                  socket_path, host::error_text(errno)));
    return {std::move(to), as};
}

decision_output decision_output::open(const options& wanted, const std::string& state)
{
    if (wanted.decisions == "-")
        return {host::unique_fd(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)), form::file};
    if (wanted.decisions == "syslog")
        return connected("/dev/log", form::syslog);
    if (wanted.decisions == "journal")
        return connected("/run/systemd/journal/socket", form::journal);
    const std::string path = wanted.decisions.empty() ? state + "/decisions.jsonl" : wanted.decisions;
    host::unique_fd file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC | O_NOCTTY, 0600));
    if (!file)
        throw trouble(fmt::format("decision log {}: {}; name another file with --decisions",
                                  host::visible(path), host::error_text(errno)));
    return {std::move(file), form::file};
}

bool decision_output::write(const std::string& line) const
{
    if (form_ != form::file) {
        const std::string_view text = std::string_view(line).substr(0, line.size() - 1);
        const std::string datagram =
            form_ == form::syslog
                ? fmt::format("<{}>sorvanic[{}]: {}", LOG_AUTHPRIV | LOG_WARNING, getpid(), text)
                : fmt::format("PRIORITY={}\nSYSLOG_IDENTIFIER=sorvanic\nMESSAGE={}\n", LOG_WARNING, text);
        return send(to_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
               static_cast<ssize_t>(datagram.size());
    }
    for (std::size_t done = 0; done < line.size();) {
        const ssize_t written = ::write(to_.get(), line.data() + done, line.size() - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        done += static_cast<std::size_t>(written);
    }
    return true;
}

} // namespace session
