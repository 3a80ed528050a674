// zinet: addresses as text, and the close-on-exec switch of a descriptor.
//
// Subsystem: platform.  Stands on: nothing.
//
// Threads: any.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/// Converts the text of an address to its bytes, in network order.
/// codes   as inet_pton(): 1; 0 for a string that is not an address of the family; -1 (errno)
///         for an unknown family.
int zinet_pton_6_0(int family, char const* text, void* out);

/// Converts an address to text; returns `buffer`.
/// units   `length` is the bytes of `buffer`.
/// codes   as inet_ntop(): null (errno) when the text does not fit or there is no such family.
char const* zinet_ntop_6_0(int family, void const* address, char* buffer, unsigned int length);

/// Lets programs that this process executes have `fd` (`inherit` non-zero), or not.
/// codes   1 on success, 0 on failure (errno).
int zsetfileinheritance_6_0(int fd, int inherit);

#ifdef __cplusplus
}
#endif
