#pragma once

/// Opens each closed standard descriptor on /dev/null: standard input for writing, the outputs for reading, so that
/// using one still fails. Otherwise the next file that is opened would get its number, and output would be written into
/// it.
void occupy_standard_descriptors();
