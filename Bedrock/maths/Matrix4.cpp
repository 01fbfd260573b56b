#include <Bedrock/maths/Matrix4.h>

#include <cstring>

namespace Zem
{

namespace
{

// Four floats that are computed with at once. Each lane does what a loop over the lanes would do, to the bit; compilers
// for processors without vectors write that loop.
using Row = float __attribute__((vector_size(16)));

template <int A, int B, int C, int D>
inline Row Pick(Row row)
{
    return __builtin_shufflevector(row, row, A, B, C, D);
}

// The transposed copy: row i holds column i of the matrix, turned by one: lane j holds element j + 1. Here and below,
// lanes, elements and columns are counted around the end.
struct Columns
{
    Row row[4];

    explicit Columns(const float* m)
    {
        Row r[4];
        std::memcpy(r, m, sizeof r);
        const Row low12 = __builtin_shufflevector(r[1], r[2], 0, 4, 1, 5);
        const Row low30 = __builtin_shufflevector(r[3], r[0], 0, 4, 1, 5);
        const Row high12 = __builtin_shufflevector(r[1], r[2], 2, 6, 3, 7);
        const Row high30 = __builtin_shufflevector(r[3], r[0], 2, 6, 3, 7);
        row[0] = __builtin_shufflevector(low12, low30, 0, 1, 4, 5);
        row[1] = __builtin_shufflevector(low12, low30, 2, 3, 6, 7);
        row[2] = __builtin_shufflevector(high12, high30, 0, 1, 4, 5);
        row[3] = __builtin_shufflevector(high12, high30, 2, 3, 6, 7);
    }
};

// A row of the copy; lane j of its three forms holds the elements j + 1, j + 2 and j + 3: the columns beside j.
struct Beside
{
    Row one, two, three;

    explicit Beside(Row row) : one(row), two(Pick<1, 2, 3, 0>(row)), three(Pick<2, 3, 0, 1>(row)) {}
};

// The 2 by 2 minors of two rows that eight cofactors share. With p and q the rows, (k, l) = p[k] * q[l] - p[l] * q[k].
struct Minors
{
    Row near; // lane j: (j + 1, j + 2)
    Row wide; // (j + 1, j + 3)
    Row far;  // (j + 2, j + 3)

    Minors(const Beside& p, const Beside& q)
        : near(p.one * q.two - p.two * q.one), wide(p.one * q.three - p.three * q.one), far(Pick<1, 2, 3, 0>(near))
    {
    }

    // For each lane j the determinant of `row` and the two rows of the minors in the columns beside j: the cofactor of j,
    // but for its sign, which is turned in lanes 1 and 3. (Three columns turned around the end are in even order.) A row
    // that stands behind an odd number of others has all its signs turned once more.
    Row EvenCofactors(const Beside& row) const { return row.one * far - row.two * wide + row.three * near; }
    Row OddCofactors(const Beside& row) const { return row.two * wide - row.one * far - row.three * near; }
};

// The determinant in all lanes, with its sign turned in lanes 1 and 3; from the first row of the copy and its cofactors.
inline Row Determinant(Row row, Row cofactors)
{
    const Row products = Pick<3, 0, 1, 2>(row) * cofactors;
    const Row pairs = products + Pick<2, 3, 0, 1>(products);
    return pairs - Pick<1, 0, 3, 2>(pairs);
}

} // namespace

Matrix4& Matrix4::Invert()
{
    const Columns copy(m);
    const Beside row0(copy.row[0]), row1(copy.row[1]), row2(copy.row[2]), row3(copy.row[3]);
    const Minors low(row2, row3);
    const Minors high(row0, row1);
    const Row row0cofactors = low.EvenCofactors(row1);
    const Row reciprocal = 1.0f / Determinant(copy.row[0], row0cofactors); // the signs of the cofactors go with it
    const auto put = [&](int row, Row cofactors)
    {
        cofactors *= reciprocal;
        std::memcpy(m + 4 * row, &cofactors, sizeof cofactors);
    };
    put(0, row0cofactors);
    put(1, low.OddCofactors(row0));
    put(2, high.EvenCofactors(row3));
    put(3, high.OddCofactors(row2));
    return *this;
}

float Matrix4::GetDeterminant() const
{
    const Columns copy(m);
    const Minors low{Beside(copy.row[2]), Beside(copy.row[3])};
    return Determinant(copy.row[0], low.EvenCofactors(Beside(copy.row[1])))[0];
}

} // namespace Zem
