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

// The transposed copy: row i holds column i of the matrix.
struct Columns
{
    Row row[4];

    explicit Columns(const float* m)
    {
        Row r[4];
        std::memcpy(r, m, sizeof r);
        const Row low01 = __builtin_shufflevector(r[0], r[1], 0, 4, 1, 5);
        const Row low23 = __builtin_shufflevector(r[2], r[3], 0, 4, 1, 5);
        const Row high01 = __builtin_shufflevector(r[0], r[1], 2, 6, 3, 7);
        const Row high23 = __builtin_shufflevector(r[2], r[3], 2, 6, 3, 7);
        row[0] = __builtin_shufflevector(low01, low23, 0, 1, 4, 5);
        row[1] = __builtin_shufflevector(low01, low23, 2, 3, 6, 7);
        row[2] = __builtin_shufflevector(high01, high23, 0, 1, 4, 5);
        row[3] = __builtin_shufflevector(high01, high23, 2, 3, 6, 7);
    }
};

// The 2 by 2 minors of two rows that eight cofactors share, laid out for their use. For lane j, let a < b < c be the
// three columns that are not j; the minor of columns k and l is p[k] * q[l] - p[l] * q[k].
//
//     lane           0        1        2        3
//     a b c          1 2 3    0 2 3    0 1 3    0 1 2
//     ofBC, signed   2,3      3,2      1,3      2,1
//     ofAC, signed   3,1      0,3      3,0      0,2
//     ofAB, signed   1,2      2,0      0,1      1,0
struct Minors
{
    Row ofBC, ofAC, ofAB;

    Minors(Row p, Row q)
        : ofBC(Pick<2, 3, 1, 2>(p) * Pick<3, 2, 3, 1>(q) - Pick<3, 2, 3, 1>(p) * Pick<2, 3, 1, 2>(q)),
          ofAC(Pick<3, 0, 3, 0>(p) * Pick<1, 3, 0, 2>(q) - Pick<1, 3, 0, 2>(p) * Pick<3, 0, 3, 0>(q)),
          ofAB(Pick<1, 2, 0, 1>(p) * Pick<2, 0, 1, 0>(q) - Pick<2, 0, 1, 0>(p) * Pick<1, 2, 0, 1>(q))
    {
    }

    // The four cofactors beside `row`, each the determinant of three columns of `row` and the two rows of the minors;
    // their signs alternate already by the order of columns above.
    Row Cofactors(Row row) const
    {
        return ofBC * Pick<1, 0, 0, 0>(row) + ofAC * Pick<2, 2, 1, 1>(row) + ofAB * Pick<3, 3, 3, 2>(row);
    }
};

inline float Dot(Row a, Row b)
{
    const Row products = a * b;
    const Row pairs = products + Pick<2, 3, 0, 1>(products);
    return pairs[0] + pairs[1];
}

} // namespace

Matrix4& Matrix4::Invert()
{
    const Columns copy(m);
    const Minors low(copy.row[2], copy.row[3]);
    const Minors high(copy.row[0], copy.row[1]);
    Row cofactors[4] = {low.Cofactors(copy.row[1]), low.Cofactors(copy.row[0]), high.Cofactors(copy.row[3]),
                        high.Cofactors(copy.row[2])};
    const float reciprocal = 1.0f / Dot(copy.row[0], cofactors[0]);
    // `low.Cofactors(row 0)` and `high.Cofactors(row 2)` are the ones of rows 1 and 3, where the signs are the other way
    // round.
    const Row even = {reciprocal, reciprocal, reciprocal, reciprocal};
    const Row odd = -even;
    cofactors[0] *= even;
    cofactors[1] *= odd;
    cofactors[2] *= even;
    cofactors[3] *= odd;
    std::memcpy(m, cofactors, sizeof m);
    return *this;
}

float Matrix4::GetDeterminant() const
{
    const Columns copy(m);
    return Dot(copy.row[0], Minors(copy.row[2], copy.row[3]).Cofactors(copy.row[1]));
}

} // namespace Zem
