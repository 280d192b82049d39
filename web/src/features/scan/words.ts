import { words } from "../../app/language";

export const label = words({
  IDS_ALL: "All",
  IDS_CANCEL: "Cancel",
  IDS_CHANNEL_SEARCH: "Channel search",
  IDS_NO_SIGNAL: "No signal",
});
