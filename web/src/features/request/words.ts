import { words } from "../../app/language";

export const label = words({
  IDS_REQUEST: "Request",
  IDS_RESPONSE: "Response",
});
