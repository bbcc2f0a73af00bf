#ifndef SORVANIC_CORE_BASE_SYMBOLS_H
#define SORVANIC_CORE_BASE_SYMBOLS_H

/// The address of the kernel symbol `name`, of whatever type: the first line of "/proc/kallsyms"
/// whose name field equals it. 0 when the file cannot be opened, has no such line, or shows
/// zero addresses. Reads the file a byte at a time; may sleep.
unsigned long find_symbol_addr(const char* name);

/// The value of the hexadecimal number (either case) in the first 16 bytes of `line`, ending at
/// the first byte that is no digit; 0 without one.
unsigned long get_sym_address(const char* line);

#endif
