// SPDX-License-Identifier: ISC
// What tests/linkage/check must find: a template that another file may have under the same name.
namespace quillworks::N_AVX2 {

template <class T> [[gnu::noinline]] T half(T x)
{
    return x / 2;
}

namespace {
float halfHere(float x)
{
    return half(x);
}
}  // namespace

}  // namespace quillworks::N_AVX2

float (*halfKernel())(float)
{
    return quillworks::N_AVX2::halfHere;
}
