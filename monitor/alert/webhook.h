// Posts a message to an alert's webhook.
#ifndef MONITOR_WEBHOOK_H
#define MONITOR_WEBHOOK_H

#include "alert/alert_message.h"
#include "item/alert.h"
#include "proc/wake.h"

// Posts the JSON object to the alert's webhook. Success if the answer is 2xx. Asks for another
// attempt if there is no connection, no answer in time, or a 5xx answer. Every other answer is a
// permanent failure. Redirects are not followed.
Delivery post_to_webhook(const Alert& alert, const AlertMessage& message, const Wake& stop,
                         const AlertLimits& limits);

#endif
