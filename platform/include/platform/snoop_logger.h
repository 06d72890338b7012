#pragma once

/// Receives a copy of every piece of logged port traffic: a text of `length` characters. The application sets it before
/// it switches logging on; null, the initial value, for none. Called by the thread that moves the bytes.
extern void (*snoop_logger)(const char* text, unsigned int length);
