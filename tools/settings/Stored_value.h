#pragma once

#include <platform/NV_iterator.h>

#include <string>
#include <vector>

/// A value as a record holds it: one number, an array or a matrix of them.
struct Stored_value {
    unsigned rows = 1;
    unsigned columns = 1;
    std::vector<std::string> numbers; ///< each as the shortest text that reads back the same; row by row
};

/// What people call a type of node; null for a code that is none.
const char* type_name(int type);

/// Whether records of a type hold a number whose width is known without its tree.
bool is_number(int type);
/// Whether there are arrays of it that can be told without their tree.
bool has_arrays(int type);

/// Reads one number of a type that is one. \return whether it was there
bool read_number(NV_store::NV_iterator& it, int type, std::string& text);

/// What the record is: "int32", "array of 3 uint8", "matrix of 2 x 3 float".
std::string kind_text(int dimension, int type, const Stored_value& value);

/// The value: "5", "65 'A'", "[1, 2, 3]", "[[1, 2], [3, 4]]". An array of characters is a text: "\"abc\"", with \xHH
/// for what is not printable.
std::string value_text(int dimension, int type, const Stored_value& value);
