/* logging_functions.h: functions with names that log through libcoap's logger.
 *
 * In a file of their own, so that a compiler neither inlines nor specialises them. */
#ifndef LOGGING_FUNCTIONS_H
#define LOGGING_FUNCTIONS_H

#include <coap3/coap.h>

extern "C" {

void LogFromNamedFunction(coap_log_t level, const char *message);
void LogFromOtherFunction(coap_log_t level, const char *message);  // puts "other " before it
void LogFromThirdFunction(coap_log_t level, const char *message);
void LogIfAsked(coap_log_t level, const char *message);  // asks first, as libcoap's own code does
}

#endif /* LOGGING_FUNCTIONS_H */
