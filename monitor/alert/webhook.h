// An alert's webhook: one POST.
#ifndef MONITOR_WEBHOOK_H
#define MONITOR_WEBHOOK_H

#include "alert/alert_message.h"
#include "item/alert.h"
#include "proc/wake.h"

// Posts the JSON object to the alert's webhook. Sent if the answer is 2xx. Worth another attempt if
// there is no connection or no answer in time, or if it is 5xx; every other answer is final.
// Redirects are not followed.
Delivery post_to_webhook(const Alert& alert, const AlertMessage& message, const Wake& stop,
                         const AlertLimits& limits);

#endif
