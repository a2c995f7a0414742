/* test_sleep.h: what sleep() does in a test program. */
#ifndef TEST_SLEEP_H
#define TEST_SLEEP_H

using TestSleep = unsigned (*)(unsigned seconds);

// SetTestSleep makes sleep() call `func`, or sleep again for null.  Returns what was set before.
TestSleep SetTestSleep(TestSleep func);

#endif /* TEST_SLEEP_H */
