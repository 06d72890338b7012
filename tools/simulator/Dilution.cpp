#include "Dilution.h"

#include <cmath>
#include <utility>

namespace simulator {

namespace {

constexpr int unknowns = 4; // east, north, up, clock

using Row = double[unknowns];

/// The derivatives of one satellite's range by each unknown.
void geometry_row(const Sighting& sighting, Row& row) {
    row[0] = -std::cos(sighting.elevation) * std::sin(sighting.azimuth);
    row[1] = -std::cos(sighting.elevation) * std::cos(sighting.azimuth);
    row[2] = -std::sin(sighting.elevation);
    row[3] = 1;
}

/// Turns `matrix` into its inverse, by elimination with the largest pivots. False when it has none.
bool invert(Row (&matrix)[unknowns]) {
    constexpr double smallest_pivot = 1e-9;
    double inverse[unknowns][unknowns] = {};
    for (int i = 0; i < unknowns; ++i)
        inverse[i][i] = 1;
    for (int column = 0; column < unknowns; ++column) {
        int pivot = column;
        for (int row = column + 1; row < unknowns; ++row)
            if (std::fabs(matrix[row][column]) > std::fabs(matrix[pivot][column]))
                pivot = row;
        if (std::fabs(matrix[pivot][column]) < smallest_pivot)
            return false;
        std::swap(matrix[pivot], matrix[column]);
        std::swap(inverse[pivot], inverse[column]);
        for (int row = 0; row < unknowns; ++row) {
            const double factor = matrix[row][column] / matrix[column][column];
            for (int i = 0; row != column && i < unknowns; ++i) {
                matrix[row][i] -= factor * matrix[column][i];
                inverse[row][i] -= factor * inverse[column][i];
            }
        }
    }
    for (int row = 0; row < unknowns; ++row)
        for (int i = 0; i < unknowns; ++i)
            inverse[row][i] /= matrix[row][row];
    std::swap(matrix, inverse);
    return true;
}

} // namespace

Dilution dilution_of(const std::vector<Sighting>& sightings) {
    double sums[unknowns][unknowns] = {};
    for (const Sighting& sighting : sightings) {
        if (sighting.use != Sighting::Use::used)
            continue;
        Row row;
        geometry_row(sighting, row);
        for (int i = 0; i < unknowns; ++i)
            for (int j = 0; j < unknowns; ++j)
                sums[i][j] += row[i] * row[j];
    }
    if (!invert(sums))
        return {Dilution::none, Dilution::none, Dilution::none};
    return {std::sqrt(sums[0][0] + sums[1][1]), std::sqrt(sums[2][2]), std::sqrt(sums[3][3])};
}

} // namespace simulator
