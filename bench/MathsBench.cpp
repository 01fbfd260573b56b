// Inverse and determinant of 4 by 4 matrices, and quaternion interpolation, over arrays that fit the first-level cache
// (16), the second (1,024), and neither (65,536 elements). All in single precision; results go to a second array.

#include <Bedrock/maths/Matrix4.h>
#include <Bedrock/maths/Quaternion.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#ifdef BENCH_HAS_GLM
#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>
#endif
#ifdef BENCH_HAS_EIGEN3
#include <Eigen/Dense>
#include <Eigen/Geometry>
#include <Eigen/StdVector>
#endif

namespace
{

std::vector<Zem::Matrix4> Matrices(std::int64_t count)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<float> element(-1, 1);
    std::vector<Zem::Matrix4> result(static_cast<std::size_t>(count));
    for (Zem::Matrix4& m : result)
        for (int i = 0; i < 16; ++i)
            m.m[i] = element(random) + (i % 5 == 0 ? 3.0f : 0.0f); // far from singular
    return result;
}

std::vector<Zem::Quaternion> Quaternions(std::int64_t count)
{
    std::mt19937 random(2);
    std::normal_distribution<float> element;
    std::vector<Zem::Quaternion> result(static_cast<std::size_t>(count));
    for (Zem::Quaternion& q : result)
    {
        q = {element(random), element(random), element(random), element(random)};
        const float length = std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w);
        q = {q.x / length, q.y / length, q.z / length, q.w / length};
    }
    return result;
}

// Runs `work(result, element, next element)` over an array of `Type`s with the bits of `source`.
template <class Type, class Result, class Source, class Work>
void Run(benchmark::State& state, const std::vector<Source>& source, Work work)
{
    static_assert(sizeof(Type) == sizeof(Source));
    std::vector<Type> in(source.size());
    for (std::size_t i = 0; i < in.size(); ++i)
        std::memcpy(static_cast<void*>(&in[i]), &source[i], sizeof(Type));
    std::vector<Result> out(in.size());
    for (auto _ : state)
    {
        for (std::size_t i = 0; i + 1 < in.size(); ++i)
            work(out[i], in[i], in[i + 1]);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * (state.range(0) - 1));
}

#define SIZES ->Arg(16)->Arg(1024)->Arg(65536)
constexpr float T = 0.3f;

void InverseBedrock(benchmark::State& state)
{
    Run<Zem::Matrix4, Zem::Matrix4>(state, Matrices(state.range(0)),
                                    [](auto& out, const auto& m, const auto&)
                                    {
                                        out = m;
                                        out.Invert();
                                    });
}
void DeterminantBedrock(benchmark::State& state)
{
    Run<Zem::Matrix4, float>(state, Matrices(state.range(0)),
                             [](float& out, const auto& m, const auto&) { out = m.GetDeterminant(); });
}
void SlerpBedrock(benchmark::State& state)
{
    Run<Zem::Quaternion, Zem::Quaternion>(state, Quaternions(state.range(0)),
                                          [](auto& out, const auto& a, const auto& b) { out.Slerp(a, b, T); });
}
BENCHMARK(InverseBedrock)->Name("Maths/inverse/Bedrock") SIZES;
BENCHMARK(DeterminantBedrock)->Name("Maths/determinant/Bedrock") SIZES;
BENCHMARK(SlerpBedrock)->Name("Maths/slerp/Bedrock") SIZES;

#ifdef BENCH_HAS_GLM
void InverseGlm(benchmark::State& state)
{
    Run<glm::mat4, glm::mat4>(state, Matrices(state.range(0)),
                              [](auto& out, const auto& m, const auto&) { out = glm::inverse(m); });
}
void DeterminantGlm(benchmark::State& state)
{
    Run<glm::mat4, float>(state, Matrices(state.range(0)),
                          [](float& out, const auto& m, const auto&) { out = glm::determinant(m); });
}
void SlerpGlm(benchmark::State& state)
{
    Run<glm::quat, glm::quat>(state, Quaternions(state.range(0)),
                              [](auto& out, const auto& a, const auto& b) { out = glm::slerp(a, b, T); });
}
BENCHMARK(InverseGlm)->Name("Maths/inverse/glm") SIZES;
BENCHMARK(DeterminantGlm)->Name("Maths/determinant/glm") SIZES;
BENCHMARK(SlerpGlm)->Name("Maths/slerp/glm") SIZES;
#endif

#ifdef BENCH_HAS_EIGEN3
void InverseEigen(benchmark::State& state)
{
    Run<Eigen::Matrix4f, Eigen::Matrix4f>(state, Matrices(state.range(0)),
                                          [](auto& out, const auto& m, const auto&) { out = m.inverse(); });
}
void DeterminantEigen(benchmark::State& state)
{
    Run<Eigen::Matrix4f, float>(state, Matrices(state.range(0)),
                                [](float& out, const auto& m, const auto&) { out = m.determinant(); });
}
void SlerpEigen(benchmark::State& state)
{
    Run<Eigen::Quaternionf, Eigen::Quaternionf>(state, Quaternions(state.range(0)),
                                                [](auto& out, const auto& a, const auto& b) { out = a.slerp(T, b); });
}
BENCHMARK(InverseEigen)->Name("Maths/inverse/Eigen") SIZES;
BENCHMARK(DeterminantEigen)->Name("Maths/determinant/Eigen") SIZES;
BENCHMARK(SlerpEigen)->Name("Maths/slerp/Eigen") SIZES;
#endif

} // namespace
