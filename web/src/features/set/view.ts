import type { View } from "../../app/view";
import { SetIcon } from "../../ui/icons";
import { SetPanel } from "./set-panel";
import { label } from "./words";

export const view: View = {
  id: "set",
  title: () => label("IDS_TELEVISION"),
  order: 21,
  icon: SetIcon,
  component: SetPanel,
};
