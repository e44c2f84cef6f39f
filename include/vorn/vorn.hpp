// vorn.hpp - the whole C++ class layer, with the C interface.
#ifndef VORN_VORN_HPP
#define VORN_VORN_HPP

#include <vorn/exceptions.hpp>
#include <vorn/file.hpp>
#include <vorn/library.hpp>
#include <vorn/sync.hpp>
#include <vorn/unistr.hpp>
#include <vorn/vorn.h>

#endif
