import { words } from "../../app/language";

export const label = words({
  IDS_CHANNEL: "Channel",
  IDS_COLOUR: "Colour",
  IDS_MENU: "Menu",
  IDS_PICTURE: "Picture",
  IDS_PLAY: "Play",
  IDS_POWER: "Power",
  IDS_REMOTE_CONTROL: "Remote control",
});
