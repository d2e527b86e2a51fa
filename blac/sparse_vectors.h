#pragma once

#include <cstddef>

// Here and in the other headers of the loops all is in an unnamed namespace: each source file that includes them is compiled for another
// kind of processor, and the linker must not take code of one for that of the other. For the same reason they call no inline function of a
// library.
namespace
{

// Eight vectors with one leading dimension.
//
// The empty assembly hides how the values depend on each other. Compilers otherwise form each address from the one before, and ahead of the
// branch that needs it, for which the registers do not suffice (a tenth of the time of A X).
class EightVectors
{
public:
    explicit EightVectors(std::ptrdiff_t ld) : m_one(ld * std::ptrdiff_t{sizeof(double)}), m_three(3 * m_one) { asm("" : "+r"(m_three)); }

    // Where the vectors 0 ... 7 have a certain row.
    class Row
    {
    public:
        [[gnu::always_inline]] double const* operator[](int j) const
        {
            char const* const base = j < 4 ? m_x0 : m_x4;
            return reinterpret_cast<double const*>(j % 4 == 3 ? base + m_three : base + j % 4 * m_one);
        }
        [[gnu::always_inline]] Row Down(int rows) const
        {
            std::ptrdiff_t const bytes = rows * std::ptrdiff_t{sizeof(double)};
            return Row(m_x0 + bytes, m_x4 + bytes, m_one, m_three);
        }

    private:
        friend class EightVectors;
        Row(char const* x0, char const* x4, std::ptrdiff_t one, std::ptrdiff_t three) : m_x0(x0), m_x4(x4), m_one(one), m_three(three) {}
        char const *m_x0, *m_x4;
        std::ptrdiff_t m_one, m_three;
    };

    // The row that vector 0 has at x.
    [[gnu::always_inline]] Row At(double const* x) const
    {
        auto const* x0 = reinterpret_cast<char const*>(x);
        auto const* x4 = x0 + 4 * m_one;
        asm("" : "+r"(x0), "+r"(x4));
        return Row(x0, x4, m_one, m_three);
    }

private:
    std::ptrdiff_t m_one, m_three; // multiples of the leading dimension, in bytes
};

} // namespace
