#pragma once

#include <platform/NV_iterator.h>

#include <string>
#include <vector>

/// The value of a record: one number, an array or a matrix.
struct Stored_value {
    unsigned rows = 1;
    unsigned columns = 1;
    std::vector<std::string> numbers; ///< each as the shortest text that reads back the same; row by row
};

/// The name of a type of node; null for an unknown code.
const char* type_name(int type);

/// Whether records of a type hold a number whose width is known without the tree.
bool is_number(int type);
/// Whether arrays of a type can be read without the tree.
bool has_arrays(int type);

/// Reads one number. \return false when the type is not a number's or bytes are missing
bool read_number(NV_store::NV_iterator& it, int type, std::string& text);

/// The kind of the record: "int32", "array of 3 uint8", "matrix of 2 x 3 float".
std::string kind_text(int dimension, int type, const Stored_value& value);

/// The value: "5", "65 'A'", "[1, 2, 3]", "[[1, 2], [3, 4]]". An array of characters is a text: "\"abc\"", with \xHH
/// for characters that are not printable.
std::string value_text(int dimension, int type, const Stored_value& value);
