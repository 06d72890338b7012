#pragma once

/// Takes a copy of every piece of logged port traffic: a text of `length` characters. The application sets it before it
/// switches logging on; null, as at first, means nobody listens. Called by whichever thread moves the bytes.
extern void (*snoop_logger)(const char* text, unsigned int length);
