#pragma once
/// The library's byte string: a standard string of char, with no encoding implied.

#include <string>

typedef std::string CCmString;
