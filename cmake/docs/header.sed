# Copies that the compiler writes need no docstring: for the reference they are as if they were not declared.
/^ +(\w+)\(\1 const&\) noexcept = default;$/d
/^ +(\w+)& operator=\(\1 const&\) noexcept = default;$/d
