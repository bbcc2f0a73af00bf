#ifndef SORVANIC_POLICY_ENCODED_FILE_H
#define SORVANIC_POLICY_ENCODED_FILE_H

// Encoded policy files and their work files.
//
// An encoded policy file is one run of base64 characters (base64.h). It is decoded in chunks
// of 1328 characters, each by itself, into a work file: plain text that exists only while a
// table is loaded. Between loads the work file is empty; it is never deleted. Both functions
// return 0 in every case, print nothing, take no lock and may sleep; the loads of one table
// must not overlap, for its work file is one fixed path.

/// Decodes the file at `encoded` into the one at `work`, which is created with permission bits
/// 0000 or emptied first. When memory is short or `encoded` cannot be opened, `work` is left as
/// it was; a read error ends the decoding there. In a chunk, what follows the first character
/// outside the alphabet is dropped.
int sorvanic_kernel_base64defile(const char* encoded, const char* work);

/// Empties the work file, creating it with permission bits 0000 when it is not there.
int sorvanic_kernel_base64decover(const char* work);

#endif
