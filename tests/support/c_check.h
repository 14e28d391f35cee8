/* A small test harness for the C tests: checks that report the file, line
 * and values of a failure and go on, and a runner for a table of tests.
 * C99. */
#ifndef HEXBLOCKS_TESTS_C_CHECK_H
#define HEXBLOCKS_TESTS_C_CHECK_H

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

/* The failures of the test that runs; the runner counts them. */
static int c_check_failures;

#define CHECK(condition)                                                                        \
    do {                                                                                        \
        if (!(condition)) {                                                                     \
            fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #condition);             \
            ++c_check_failures;                                                                 \
        }                                                                                       \
    } while (0)

/* Two integers (of any integer type up to 64 bits) are equal. */
#define CHECK_EQ(actual, expected)                                                              \
    do {                                                                                        \
        const uint64_t c_check_a = (uint64_t)(actual), c_check_e = (uint64_t)(expected);        \
        if (c_check_a != c_check_e) {                                                           \
            fprintf(stderr, "%s:%d: %s is 0x%" PRIX64 ", expected %s, 0x%" PRIX64 "\n",         \
                    __FILE__, __LINE__, #actual, c_check_a, #expected, c_check_e);              \
            ++c_check_failures;                                                                 \
        }                                                                                       \
    } while (0)

/* Two strings are equal (NULL only equals NULL). */
#define CHECK_STR(actual, expected)                                                             \
    do {                                                                                        \
        const char* c_check_a = (actual);                                                       \
        const char* c_check_e = (expected);                                                     \
        if ((c_check_a == NULL || c_check_e == NULL) ? c_check_a != c_check_e                   \
                                                     : strcmp(c_check_a, c_check_e) != 0) {     \
            fprintf(stderr, "%s:%d: %s is \"%s\", expected \"%s\"\n", __FILE__, __LINE__,       \
                    #actual, c_check_a ? c_check_a : "(null)", c_check_e ? c_check_e : "(null)"); \
            ++c_check_failures;                                                                 \
        }                                                                                       \
    } while (0)

/* size bytes at actual equal those at expected. */
#define CHECK_BYTES(actual, expected, size)                                                     \
    do {                                                                                        \
        if (memcmp((actual), (expected), (size)) != 0) {                                        \
            fprintf(stderr, "%s:%d: the %zu bytes of %s differ from %s\n", __FILE__, __LINE__,   \
                    (size_t)(size), #actual, #expected);                                        \
            ++c_check_failures;                                                                 \
        }                                                                                       \
    } while (0)

typedef struct c_test_t {
    const char* name;
    void (*run)(void);
} c_test_t;

/* Runs the tests whose name is filter (every test for NULL), printing
 * each one's outcome; returns the exit status: 0 when all passed. */
static int c_check_run(const c_test_t* tests, size_t count, const char* filter)
{
    size_t ran = 0, failed = 0, i;
    for (i = 0; i < count; ++i) {
        if (filter != NULL && strcmp(filter, tests[i].name) != 0)
            continue;
        c_check_failures = 0;
        printf("[ RUN      ] %s\n", tests[i].name);
        fflush(stdout);
        tests[i].run();
        printf("%s %s\n", c_check_failures == 0 ? "[       OK ]" : "[  FAILED  ]", tests[i].name);
        fflush(stdout);
        ++ran;
        if (c_check_failures != 0)
            ++failed;
    }
    printf("%zu tests ran, %zu failed\n", ran, failed);
    return ran == 0 || failed != 0 ? 1 : 0;
}

#endif
