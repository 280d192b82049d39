import { words } from "../../app/language";

export const label = words({
  IDS_CANCEL: "Cancel",
  IDS_CLEAR: "Clear",
  IDS_RECENT_REQUESTS: "Recent requests",
  IDS_REQUEST: "Request",
  IDS_RESPONSE: "Response",
  IDS_SEND_AGAIN: "Send again",
  IDS_WAITING_ANSWER: "Waiting for the answer",
});
