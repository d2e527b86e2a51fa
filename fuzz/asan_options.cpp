// Of every fuzzer. A quarantine larger than the cache would cost more than all the rest.
extern "C" char const* __asan_default_options();

extern "C" char const* __asan_default_options()
{
    return "allocator_may_return_null=1:max_allocation_size_mb=64:quarantine_size_mb=1";
}
