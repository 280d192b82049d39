import { words } from "../../app/language";

export const label = words({
  IDS_BLOCKED_PIN: "Blocked: enter the PIN",
  IDS_NO_CHANNEL: "No channel",
  IDS_NO_PICTURE: "No picture",
  IDS_NO_SIGNAL: "No signal",
  IDS_NO_TUNER: "All tuners are in use",
  IDS_PICTURE: "Picture",
  IDS_PICTURE_TOKEN:
    "This page shows the picture only with the token: open the address that dtv-host printed (it ends with #token=...)",
  IDS_RADIO: "Radio",
  IDS_SCRAMBLED: "Scrambled",
  IDS_SECOND_PICTURE: "Second picture",
  IDS_STANDBY: "Standby",
});
