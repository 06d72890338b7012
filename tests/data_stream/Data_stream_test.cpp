#include <glue/data_stream/Data_stream.h>

#include <gtest/gtest.h>
TEST(Data_stream, x) {}
