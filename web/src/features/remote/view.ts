import type { View } from "../../app/view";
import { RemoteIcon } from "../../ui/icons";
import { RemotePanel } from "./remote-panel";
import { label } from "./words";

export const view: View = {
  id: "remote",
  title: () => label("IDS_REMOTE_CONTROL"),
  order: 40,
  icon: RemoteIcon,
  component: RemotePanel,
};
