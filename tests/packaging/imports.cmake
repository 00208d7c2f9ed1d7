# The functions of the C library that the installed library of PREFIX calls. Its results have the same bits with every C
# library, hence none of those whose last bit the C libraries are free to choose.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

# exp, expf, cexp, exp@GLIBC_2.29, __exp_finite, _exp, _ZGVdN4v_exp, __powidf2 and the like are one function. sqrt is
# missing on purpose: IEEE 754 says what it returns.
set(transcendental "exp|exp2|exp10|expm1|exp2m1|exp10m1|log|log2|log10|log1p|logp1|log2p1|log10p1|pow|powi|pown|powr|pow10|compoundn|rootn|rsqrt|cbrt|hypot|fma|sin|cos|tan|sincos|asin|acos|atan|atan2|sinpi|cospi|tanpi|asinpi|acospi|atanpi|atan2pi|sinh|cosh|tanh|asinh|acosh|atanh|erf|erfc|lgamma|tgamma|gamma|j0|j1|jn|y0|y1|yn|abs")
string(REGEX REPLACE "\\|abs$" "" real "${transcendental}")
set(ending "(f|l|f32|f64|f32x|f64x|f128|[sdxt]f2)?(_r|_finite)?(@.*)?")
set(pattern "^_*(ZGV[A-Za-z0-9]+_)?(${real}|c(${transcendental}))${ending}$")
foreach(name IN ITEMS exp pow@GLIBC_2.29 __log_finite sincosf _pow lgamma_r@GLIBC_2.23 hypotl expm1f log1pl tgammaf
    cbrtl fmaf atan2l erfcf cexp cabsf _ZGVdN4v_exp __powidf2 sinpi)
  if(NOT name MATCHES "${pattern}")
    message(FATAL_ERROR "the pattern does not find ${name}")
  endif()
endforeach()
foreach(name IN ITEMS sqrt sqrtf fabs floor abs ldexp@GLIBC_2.2.5 memcpy _ZN3exp3logEv)
  if(name MATCHES "${pattern}")
    message(FATAL_ERROR "the pattern takes ${name} for a transcendental function")
  endif()
endforeach()

file(GLOB_RECURSE libraries "${PREFIX}/lib*/libclastool.*")
list(FILTER libraries INCLUDE REGEX "libclastool\\.(a|so|dylib)$")
list(LENGTH libraries count)
expect_equal(1 ${count} "number of libraries in ${PREFIX}")
set(dynamic "")
if(SHARED)
  set(dynamic -D)
endif()
execute_process(COMMAND "${NM}" ${dynamic} --undefined-only --format=posix "${libraries}"
  OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${symbols}")
set(found "")
set(names "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE " .*" "" name "${line}")
  list(APPEND names "${name}")
  if(name MATCHES "${pattern}")
    list(APPEND found "${name}")
  endif()
endforeach()
# The list is one of symbols: the library needs memory.
if(NOT names MATCHES "(^|;)_*memcpy(@|;|$)")
  message(FATAL_ERROR "memcpy is not among the imported functions: ${names}")
endif()
expect_equal("" "${found}" "imported transcendental functions of ${libraries}")
