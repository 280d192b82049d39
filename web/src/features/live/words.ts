import { words } from "../../app/language";

export const label = words({
  IDS_CALLS: "Calls",
  IDS_CLEAR: "Clear",
  IDS_LIVE: "Live",
  IDS_LIVE_LOG: "Live log",
  IDS_NOT_SERVED: "Not served",
  IDS_NO_SUBSCRIPTION: "No URI is subscribed to.",
  IDS_PAUSE: "Pause",
  IDS_PAUSED_WAITING: "Paused · {0} waiting",
  IDS_RECEIVED: "received",
  IDS_SUBSCRIPTIONS: "Subscriptions",
  IDS_TRACE_CALLS: "Trace every platform call",
  IDS_TRACE_OFF: "The trace is off.",
  IDS_WAITING_CALL: "Waiting for the first call.",
  IDS_WAITING_NOTIFICATION: "Waiting for the first notification. Change the volume to see one.",
});
