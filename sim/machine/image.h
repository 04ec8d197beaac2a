// Process images: a program is a shared library loaded once per living process, each from a copy of its
// own.
#pragma once

#include <windows.h>
#include <string>

namespace sim {

struct Image;

// An image of a program ("zorpm" or "zorpmctl") whose process-wide variables are as freshly loaded. The pool
// keeps images between processes: on release the writable segment is put back to its state just after
// loading, which is what a new load would give.
Image* image_acquire(const std::string& program);
void image_release(Image* image);

using EntryPoint = int(WINAPI*)(HINSTANCE, HINSTANCE, LPWSTR, int);
EntryPoint image_entry(const Image* image);
HINSTANCE image_instance(const Image* image);
// The name of the function at an address of the image, "" when unknown.
std::string image_symbol(const Image* image, const void* address);

// Removes this process's copies of the images from the disk; whoever ends without exit() calls it, also from
// a signal handler.
void image_remove_copies();

} // namespace sim
