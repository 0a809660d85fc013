# What is changed in the C++ that hidl-gen writes.

# It writes the 32 bytes of an interface's hash as a C compound literal, whose address g++ doesn't
# let it take. As a std::array it says the same to every compiler.
s/(uint8_t\[32\])\({[^{}]*}\)/::std::array<uint8_t, 32>{\1}/g

# Where a stub begins its method's trace it has read all arguments. Calls that have brought more end
# there.
/^    atrace_begin(ATRACE_TAG_HAL, "HIDL::.*::server");$/i\
    _hidl_err = ::android::hardware::checkArgumentsEnd(_hidl_data);\
    if (_hidl_err != ::android::OK) { return _hidl_err; }\

