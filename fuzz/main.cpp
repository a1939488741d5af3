// One fuzz target. The header with its body and the body's name come from CMakeLists.txt.

#include ORMEK_FUZZ_HEADER

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    ORMEK_FUZZ_BODY(Ormek::Fuzzing::Input(bytes, size));
    return 0;
}
