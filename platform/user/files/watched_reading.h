#ifndef SORVANIC_PLATFORM_USER_FILES_WATCHED_READING_H
#define SORVANIC_PLATFORM_USER_FILES_WATCHED_READING_H

namespace platform {

/// Whether the calling thread is to read no further (see reading).
bool reading_given_up();

/// Notes why the host did not let the calling thread open or read. Returns the negative error number.
int reading_failed(int error);

} // namespace platform

#endif
