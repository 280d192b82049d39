import type { View } from "../../app/view";
import { ChannelsIcon } from "../../ui/icons";
import { ChannelsPanel } from "./channels-panel";
import { label } from "./words";

export const view: View = {
  id: "channels",
  title: () => label("IDS_CHANNELS"),
  order: 22,
  icon: ChannelsIcon,
  component: ChannelsPanel,
};
