import { words } from "../../app/language";

export const label = words({
  IDS_CHANNEL: "Channel",
  IDS_COLOUR: "Colour",
  IDS_COMMAND_DEVICE: "the set's command device cannot be opened",
  IDS_KEYS_HELP: "While a key has the focus, the keyboard works too: digits, arrows, `+` `-` `m` `PgUp` `PgDn` `Esc`.",
  IDS_KEY_PRESSED: "was pressed.",
  IDS_MENU: "Menu",
  IDS_MORE: "More",
  IDS_NO_KEYS: "The plugin reports no key names.",
  IDS_PICTURE: "Picture",
  IDS_PLAY: "Play",
  IDS_POWER: "Power",
  IDS_REMOTE_CONTROL: "Remote control",
});
