import { words } from "../../app/language";

export const label = words({
  IDS_CALLS: "Calls",
  IDS_CLEAR: "Clear",
  IDS_LIVE: "Live",
  IDS_PAUSE: "Pause",
  IDS_RECEIVED: "received",
  IDS_SUBSCRIPTIONS: "Subscriptions",
});
