#pragma once

/// Opens whichever of the three standard descriptors is closed, in a way that neither reading nor writing works: else
/// the next file that is opened would bear its number, and what is meant for standard output would go into that.
void occupy_standard_descriptors();
