#ifndef SORVANIC_POLICY_PATH_RULES_H
#define SORVANIC_POLICY_PATH_RULES_H

// How a path written in a policy file covers the path of an object. Case is ignored as the
// kernel's strncasecmp ignores it.

/// The tree rule: whether `path` is `directory` itself or lies below it. A directory is written
/// without a "/" at its end; one that ends in "/" covers itself and what has a second "/" there.
bool in_tree(const char* directory, const char* path);

/// The prefix rule: whether `path` begins with `start`, whatever follows.
bool is_prefix(const char* start, const char* path);

/// The part behind the last "/" of `path`, or all of it when it has none.
const char* final_component(const char* path);

#endif
