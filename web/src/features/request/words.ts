import { words } from "../../app/language";

export const label = words({
  IDS_CANCEL: "Cancel",
  IDS_REQUEST: "Request",
  IDS_RESPONSE: "Response",
  IDS_WAITING_ANSWER: "Waiting for the answer",
});
