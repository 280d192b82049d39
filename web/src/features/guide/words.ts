import { words } from "../../app/language";

export const label = words({
  IDS_BLOCKED: "Blocked",
  IDS_DETAILS: "Details",
  IDS_EARLIER: "Earlier",
  IDS_FROM_AGE: "from {0} years",
  IDS_GUIDE: "Programme guide",
  IDS_GUIDE_EMPTY:
    "The guide has no events yet. They come with the channel that the set shows, and from `dtvctl tv guide import FILE`.",
  IDS_LATER: "Later",
  IDS_NEXT_DAY: "Next day",
  IDS_NOW: "Now",
  IDS_NO_EVENT: "No event",
  IDS_PREVIOUS_DAY: "Previous day",
  IDS_RECORD: "Record",
  IDS_REMIND: "Remind",
  IDS_SERIES: "Series",
  IDS_TIME: "Time",
  IDS_WATCH: "Watch",
  IDS_WILL_RECORD_EVENT: "A timer will record it.",
  IDS_WILL_RECORD_PARTS: "Every new part will be recorded.",
  IDS_WILL_REMIND: "A message will remind you.",
});
