#include <platform/snoop_logger.h>

void (*snoop_logger)(const char* text, unsigned int length) = nullptr;
